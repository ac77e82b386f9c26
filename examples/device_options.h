/*
 * The command line that the examples share: which device, which login, how long, where to.
 * Called once by main, before anything else; no threads.
 */
#ifndef DEVICE_OPTIONS_H
#define DEVICE_OPTIONS_H

#include "zu_data_type.h"

enum { EXIT_OPTIONS = 2 };

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
 * Reads the options. Ends the program with 0 after --help, and with EXIT_OPTIONS and one line on
 * standard error when something is wrong. The texts are those of argv. A password given here is
 * visible to whoever lists processes: a program for daily use would ask for it.
 */
void read_device_options(int argc, char** argv, struct device_options* options);

#endif
