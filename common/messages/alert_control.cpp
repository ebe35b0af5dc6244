#include "messages/alert_internal.h"

#include "base/text.h"
#include "containers/vector.h"

#include <charconv>
#include <cstring>

int32_t alert_threshold = 0;

// Saved states, the ones in force on top: vectors indexed by number, each element a state.
static Vector *frames = nullptr;

static Vector *top_frame() {
    return frames != nullptr ? static_cast<Vector *>(vec_top(frames)) : nullptr;
}

static void set_state(uint32_t number, uint32_t state) {
    vec_setAt(top_frame(), reinterpret_cast<void *>(static_cast<uintptr_t>(state)), number);
}

uint32_t alert_state(uint32_t number) {
    Vector *frame = top_frame();
    void *state = frame != nullptr ? vec_elementAt(frame, number) : nullptr;
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(state));
}

int32_t set_warnlevel(int32_t level) {
    const int32_t previous = alert_threshold;
    alert_threshold = level;
    return previous;
}

MsgRec alert_row(uint32_t number) {
    alert_ensure_init();
    MsgRec row = msgtable_row(number);
    const AlertClass kind = alert_class(row.type);
    switch (alert_state(number)) {
    case ALERT_HIDE:
        if (kind != AlertClass::error)
            row.type = MSG_SUPPRESSED;
        break;
    case ALERT_OFF:
    case ALERT_DISABLED:
        if (row.type != MSG_FATAL)
            row.type = MSG_SUPPRESSED;
        break;
    case ALERT_SOFTEN:
        if (row.type == MSG_ERROR) {
            row.type = MSG_WARNING;
            row.level = alert_threshold;
        }
        break;
    case ALERT_HARDEN:
        if (kind == AlertClass::warning)
            row.type = MSG_ERROR;
        break;
    }
    return row;
}

MsgRecPtr alert_lookup(uint32_t number) {
    MsgRecPtr row(xnew<MsgRec>());
    *row = alert_row(number);
    return row;
}

bool alert_hidden(const MsgRec &row) {
    return row.type == MSG_SUPPRESSED ||
           (alert_class(row.type) == AlertClass::warning && row.level < alert_threshold);
}

static void hide_all(uint32_t op) {
    alert_ensure_init();
    Vector *table = msgtable_primary();
    for (uint32_t number = 0; table != nullptr && number < vec_size(table); number++) {
        const auto *row = vec_at<MsgRec>(table, number);
        if (row == nullptr)
            continue;
        if (op == ALERT_HIDE_ALL && alert_class(row->type) != AlertClass::error)
            set_state(number, ALERT_HIDE);
        if (op == ALERT_OFF_ALL && row->type != MSG_FATAL)
            set_state(number, ALERT_OFF);
    }
}

void alert_control(uint32_t number, uint32_t op) {
    if (frames == nullptr) {
        frames = vec_new(__FILE__, __LINE__);
        vec_append(frames, vec_new(__FILE__, __LINE__));
    }
    switch (op) {
    case ALERT_PUSH:
        vec_append(frames, vec_copy(top_frame(), __FILE__, __LINE__));
        break;
    case ALERT_POP:
        if (vec_size(frames) > 1)
            vec_free(static_cast<Vector *>(vec_pop(frames)));
        break;
    case ALERT_HIDE_ALL:
    case ALERT_OFF_ALL:
        hide_all(op);
        break;
    case ALERT_CLEAR: // a vector that is emptied would keep its states in its unused slots
        vec_free(static_cast<Vector *>(vec_pop(frames)));
        vec_append(frames, vec_new(__FILE__, __LINE__));
        break;
    default:
        if (op <= ALERT_DISABLED && number <= MSG_NUMBER_MAX)
            set_state(number, op);
    }
}

void alert_disable(const char *list) {
    if (list == nullptr || *list == '\0')
        return;
    if (*list == '0') {
        alert_control(0, ALERT_HIDE_ALL);
        return;
    }
    do {
        list += strspn(list, " \t");
        uint32_t number = 0;
        const auto [end, error] = std::from_chars(list, list + strlen(list), number);
        if (error == std::errc())
            alert_control(number, str_nicmp(end, ":off", 4) == 0 ? ALERT_DISABLED : ALERT_HIDE);
        list = strchr(list, ',');
    } while (list != nullptr && *++list != '\0');
}
