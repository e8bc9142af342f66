/* The public headers compile as strict C11. */
#include "tarnwick.h"
#include "tarnwick/platform/agent.h"
#include "tarnwick/platform/engine.h"
#include "tarnwick/platform/log.h"

int tarnwick_header_check(void);
int tarnwick_header_check(void) { return kPVStringEncodingUTF8 + (int)sizeof(Boolean); }
