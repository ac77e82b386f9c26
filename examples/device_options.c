/*
 * Reading and checking the options of the examples. The library takes any text as a host and makes
 * 0.0.0.0 of what is no IPv4 address, so the address is checked here. No threads.
 */
#include "device_options.h"

#include <arpa/inet.h>
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char* program_name = "example";

static void wrong(const char* what)
{
    (void)fprintf(stderr, "%s: %s (--help tells all)\n", program_name, what);
    exit(EXIT_OPTIONS);
}

static void help(void)
{
    printf("usage: %s --host ADDRESS --port PORT [OPTION VALUE]...\n"
           "  --host ADDRESS   the device's IPv4 address\n"
           "  --port PORT      its TCP port\n"
           "  --user NAME      user name [admin]\n"
           "  --password WORD  password [admin]\n"
           "  --seconds N      end after so many seconds [until SIGINT]\n"
           "  --out FILE       live_view: keep the video in a file\n"
           "  --bitrate KBIT   settings: the bit rate to set [half of what is set]\n"
           "  --stay           ptz: end where the camera looks then, not where it began\n"
           "  --verbose        show the library's own lines\n",
           program_name);
    exit(0);
}

/* A whole number within the limits, or the end of the program. */
static long number(const char* text, long least, long most, const char* what_is_right)
{
    char* end = NULL;
    errno = 0;
    const long value = strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < least || value > most) {
        wrong(what_is_right);
    }
    return value;
}

static void take(int option, struct device_options* options)
{
    switch (option) {
    case 'h':
        options->host = optarg;
        break;
    case 'p':
        options->port = (ZU_U16)number(optarg, 1, 65535, "--port takes a number from 1 to 65535");
        break;
    case 'u':
        options->user = optarg;
        break;
    case 'w':
        options->password = optarg;
        break;
    case 's':
        options->seconds = number(optarg, 1, 86400, "--seconds takes a number from 1 to 86400");
        break;
    case 'o':
        options->out = optarg;
        break;
    case 'b':
        options->bitrate =
            (ZU_U32)number(optarg, 1, 1000000, "--bitrate takes a number from 1 to 1000000");
        break;
    case 'y':
        options->stay = 1;
        break;
    case 'v':
        options->verbose = 1;
        break;
    case 'H':
        help();
        break;
    default:
        wrong("an option is unknown or lacks its value");
    }
}

static void check(const struct device_options* options)
{
    struct in_addr address;
    if (options->host == NULL || inet_pton(AF_INET, options->host, &address) != 1) {
        wrong("--host is needed, an IPv4 address such as 192.168.1.10");
    }
    if (options->port == 0) {
        wrong("--port is needed, a number from 1 to 65535");
    }
}

void read_device_options(int argc, char** argv, struct device_options* options)
{
    static const struct option known[] = {{"host", required_argument, NULL, 'h'},
                                          {"port", required_argument, NULL, 'p'},
                                          {"user", required_argument, NULL, 'u'},
                                          {"password", required_argument, NULL, 'w'},
                                          {"seconds", required_argument, NULL, 's'},
                                          {"out", required_argument, NULL, 'o'},
                                          {"bitrate", required_argument, NULL, 'b'},
                                          {"stay", no_argument, NULL, 'y'},
                                          {"verbose", no_argument, NULL, 'v'},
                                          {"help", no_argument, NULL, 'H'},
                                          {NULL, 0, NULL, 0}};
    const char* const slash = strrchr(argv[0], '/');
    int option = 0;
    memset(options, 0, sizeof *options);
    options->user = "admin";
    options->password = "admin";
    program_name = slash != NULL ? slash + 1 : argv[0];
    opterr = 0; /* our lines, not getopt's */
    while ((option = getopt_long(argc, argv, "", known, NULL)) != -1) {
        take(option, options);
    }
    if (optind < argc) {
        wrong("only options are taken");
    }
    check(options);
}
