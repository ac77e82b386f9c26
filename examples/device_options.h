/*
 * The command line that the examples share: which device, which login, and what only some of them
 * take. Read once by main, before anything else; no threads.
 */
#ifndef DEVICE_OPTIONS_H
#define DEVICE_OPTIONS_H

#include "zu_data_type.h"

enum { EXIT_OPTIONS = 2 };

/* Options that not every program takes, to be combined. */
enum { TAKES_SECONDS = 1, TAKES_OUT = 2, TAKES_BITRATE = 4, TAKES_STAY = 8 };

struct device_options {
    const char* host; /* dotted IPv4 */
    const char* user;
    const char* password;
    const char* out; /* NULL: no file */
    ZU_U16 port;
    long seconds;   /* 0: until SIGINT */
    ZU_U32 bitrate; /* kbit/s, 0: not given */
    int stay;
    int verbose;
};

/*
 * Reads the options: those that every program takes, and those of `taken`. Ends the program with 0
 * after --help, and with EXIT_OPTIONS and one line on standard error when something is wrong. The
 * texts are those of argv. A password given here is visible to whoever lists processes: a program
 * for daily use would ask for it.
 */
void read_device_options(int argc, char** argv, unsigned taken, struct device_options* options);

/* One line on standard error, behind the program's name; any thread. */
void complain(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif
