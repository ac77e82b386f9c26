/*
 * Reading and checking the options of the examples, by one table of all of them. The library takes
 * any text as a host and makes 0.0.0.0 of what is no IPv4 address, so the address is checked here.
 * No threads.
 */
#include "device_options.h"

#include <arpa/inet.h>
#include <errno.h>
#include <getopt.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char* program_name = "example";

void complain(const char* format, ...)
{
    char line[512];
    va_list values;
    va_start(values, format);
    /* The linter does not see the va_start in the line above. */
    (void)vsnprintf(line, sizeof line, format, values); /* NOLINT(clang-analyzer-valist*) */
    va_end(values);
    (void)fprintf(stderr, "%s: %s\n", program_name, line);
}

static void wrong(const char* what)
{
    complain("%s (--help tells all)", what);
    exit(EXIT_OPTIONS);
}

/* ---- the options: what they are called, who takes them, what help says ---- */

struct described_option {
    struct option option;
    unsigned taken; /* 0: by every program */
    const char* help;
};

static const struct described_option all_options[] = {
    {{"host", required_argument, NULL, 'h'}, 0, "--host ADDRESS   the device's IPv4 address"},
    {{"port", required_argument, NULL, 'p'}, 0, "--port PORT      its TCP port"},
    {{"user", required_argument, NULL, 'u'}, 0, "--user NAME      user name [admin]"},
    {{"password", required_argument, NULL, 'w'}, 0, "--password WORD  password [admin]"},
    {{"seconds", required_argument, NULL, 's'},
     TAKES_SECONDS,
     "--seconds N      end after so many seconds [until SIGINT]"},
    {{"out", required_argument, NULL, 'o'},
     TAKES_OUT,
     "--out FILE       keep the H.264 video in a file"},
    {{"bitrate", required_argument, NULL, 'b'},
     TAKES_BITRATE,
     "--bitrate KBIT   the bit rate to set [half of what is set]"},
    {{"stay", no_argument, NULL, 'y'},
     TAKES_STAY,
     "--stay           end where the camera looks then, not where it began"},
    {{"verbose", no_argument, NULL, 'v'}, 0, "--verbose        show the library's own lines"},
    {{"help", no_argument, NULL, 'H'}, 0, "--help           this"}};

enum { OPTION_COUNT = sizeof all_options / sizeof all_options[0] };

static int is_taken(const struct described_option* option, unsigned taken)
{
    return option->taken == 0 || (option->taken & taken) != 0;
}

static void help(unsigned taken)
{
    printf("usage: %s --host ADDRESS --port PORT [OPTION VALUE]...\n", program_name);
    for (size_t i = 0; i < OPTION_COUNT; ++i) {
        if (is_taken(&all_options[i], taken)) {
            printf("  %s\n", all_options[i].help);
        }
    }
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
    default: /* there are no others */
        break;
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

/* The table for getopt_long_only, of those options that are taken. */
static void make_table(unsigned taken, struct option table[OPTION_COUNT + 1])
{
    static const struct option end = {NULL, 0, NULL, 0};
    size_t count = 0;
    for (size_t i = 0; i < OPTION_COUNT; ++i) {
        if (is_taken(&all_options[i], taken)) {
            table[count++] = all_options[i].option;
        }
    }
    table[count] = end;
}

/* getopt_long_only goes past a whole word at a time, so the one it refused is the one before. */
static void refuse(char** argv, const char* why)
{
    complain("%s %s (--help tells all)", argv[optind - 1], why);
    exit(EXIT_OPTIONS);
}

void read_device_options(int argc, char** argv, unsigned taken, struct device_options* options)
{
    struct option table[OPTION_COUNT + 1];
    const char* const slash = strrchr(argv[0], '/');
    int option = 0;
    memset(options, 0, sizeof *options);
    options->user = "admin";
    options->password = "admin";
    program_name = slash != NULL ? slash + 1 : argv[0];
    make_table(taken, table);
    opterr = 0; /* our lines, not getopt's */
    while ((option = getopt_long_only(argc, argv, ":", table, NULL)) != -1) {
        switch (option) {
        case 'H':
            help(taken);
            break;
        case ':':
            refuse(argv, "lacks its value");
            break;
        case '?':
            refuse(argv, "is no option of this program");
            break;
        default:
            take(option, options);
        }
    }
    if (optind < argc) {
        complain("%s is surplus, only options are taken (--help tells all)", argv[optind]);
        exit(EXIT_OPTIONS);
    }
    check(options);
}
