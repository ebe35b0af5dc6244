#include "runtime.h"

#include "base/xalloc.h"
#include "host/host.h"
#include "host/trace.h"
#include "messages/alert.h"

#include <new>

// The report may itself run out of memory, while it loads the messages, and then the clean-up may.
// alert_repeat() needs none by itself, unlike alert(), which remembers what it has shown.
static void report_out_of_memory() {
    static int entries = 0;
    const int entry = entries++;
    if (entry == 0)
        alert_repeat(296);
    fputs("(296) out of memory\n", stderr);
    if (entry <= 1)
        alert_exit_hook(1);
    _Exit(1);
}

void runtime_init(const char *tool_name, void (*cleanup)(int status)) {
    host_tool_name = tool_name;
    host_open_standard_streams();
    alert_exit_hook = cleanup;
    out_of_memory_hook = report_out_of_memory;
    std::set_new_handler(report_out_of_memory);
    zvdebug_warn_hook = [](const char *text) { rawmsg("ZVDEBUG (warning): %s", text); };
    zvdebug_assert_hook = [](uint32_t number, const char *condition, const char *file,
                             uint32_t line) { alert_nl_repeat(number, condition, file, line); };
}
