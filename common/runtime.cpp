#include "runtime.h"

#include "alert.h"
#include "trace.h"
#include "xalloc.h"

#include <new>

// A report that itself needs memory must not come back here for ever.
static void report_out_of_memory() {
    static bool reporting = false;
    if (!reporting) {
        reporting = true;
        alert(296);
    }
    fputs("(296) out of memory\n", stderr);
    _Exit(1);
}

static void report_warning(const char *text) {
    rawmsg("ZVDEBUG (warning): %s", text);
}

static void report_assertion(uint32_t number, const char *condition, const char *file,
                             uint32_t line) {
    alert_nl_repeat(number, condition, file, line);
}

void runtime_init(void (*cleanup)(int status)) {
    alert_exit_hook = cleanup;
    out_of_memory_hook = report_out_of_memory;
    std::set_new_handler(report_out_of_memory);
    zvdebug_warn_hook = report_warning;
    zvdebug_assert_hook = report_assertion;
}
