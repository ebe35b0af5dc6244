// Linked with a copy of the program: it shows its progress at once, and as often as it can.
#include "manifest/progress.h"

static const bool is_eager = (progress_pace = {0, 0}, true);
