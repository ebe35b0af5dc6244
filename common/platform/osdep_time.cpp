#include "platform/osdep.h"

#include <ctime>

int os_setenv(const char *name, const char *value) {
    return name != nullptr ? host_setenv(name, value != nullptr ? value : "") : 0;
}

// The zone is fixed so that times which are written do not depend on the machine's setting.
int64_t os_time(int64_t *t) {
    static bool tz_set = false;
    if (!tz_set) {
        tz_set = true;
        os_setenv("TZ", "EST0EDT");
        host_tzset();
    }
    const int64_t now = time(nullptr);
    if (t != nullptr)
        *t = now;
    return now;
}
