/*
 * What the examples have in common: from the options to a login, and back. Called by the
 * main thread; the library's own lines are shown on standard error with --verbose only.
 */
#ifndef DEVICE_LOGIN_H
#define DEVICE_LOGIN_H

#include "device_options.h"

enum { EXIT_DONE = 0, EXIT_LOGIN = 3, EXIT_REFUSED = 4 }; /* 2 is EXIT_OPTIONS */

/* Initialises the library and logs in. Ends the program with EXIT_LOGIN and one line on standard
 * error when that fails. */
ZU_U32 log_in(const struct device_options* options);

/* The opposite; from its return on nobody calls back. */
void log_out(ZU_U32 handle);

/* Prints the step and its outcome. Ends the program with EXIT_REFUSED when the device's code is not
 * 0, since every later step of an example leans on the ones before. */
void step(ZU_U32 handle, ZU_S32 code, const char* what);

#endif
