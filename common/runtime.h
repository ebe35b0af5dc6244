// Puts the runtime together.
#ifndef KESTREL_RUNTIME_H
#define KESTREL_RUNTIME_H

// Names the tool and connects the floors: reports of low ones (memory, debug assertions, debug
// warnings) go to the alerts, and every end of the program goes through `cleanup`, which must not
// return. To be called once, before anything else in the runtime.
void runtime_init(const char *tool_name, void (*cleanup)(int status));

#endif
