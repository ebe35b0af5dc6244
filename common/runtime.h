// Puts the runtime together.
#ifndef COMMON_RUNTIME_H
#define COMMON_RUNTIME_H

// Names the tool, and connects the layers: what low ones report (memory, debug assertions, debug
// warnings) goes to the alerts, and whatever ends the program does so through `cleanup`, which must
// not return. To be called once, before anything else of the runtime.
void runtime_init(const char *tool_name, void (*cleanup)(int status));

#endif
