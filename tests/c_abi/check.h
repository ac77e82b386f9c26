/*
 * The checks of the C tests: each prints what differs and is counted, and main returns the count.
 * Compiles as C and as C++. Single-threaded; one translation unit per program includes it.
 */
#ifndef C_ABI_CHECK_H
#define C_ABI_CHECK_H

#include <stdio.h>
#include <string.h>

static int failures;

static void check_number(const char* what, long long is, long long expected)
{
    if (is != expected) {
        printf("%s is %lld, expected %lld\n", what, is, expected);
        ++failures;
    }
}

static void check_true(const char* what, int holds, int line)
{
    if (!holds) {
        printf("line %d: not so: %s\n", line, what);
        ++failures;
    }
}

#define CHECK_EQUAL(is, expected) check_number(#is, (long long)(is), (long long)(expected))
#define CHECK(condition) check_true(#condition, (condition) ? 1 : 0, __LINE__)

typedef void (*case_body)(void);

struct test_case {
    const char* name;
    case_body run;
};

/* Runs the case that the only argument names. */
static int run_case(const struct test_case* cases, size_t count, int argc, char** argv)
{
    size_t i;
    for (i = 0; argc == 2 && i < count; ++i) {
        if (strcmp(cases[i].name, argv[1]) == 0) {
            cases[i].run();
            return failures == 0 ? 0 : 1;
        }
    }
    printf("usage: %s CASE\n", argv[0]);
    return 2;
}

#define RUN_CASE(cases, argc, argv) run_case(cases, sizeof(cases) / sizeof((cases)[0]), argc, argv)

#endif /* C_ABI_CHECK_H */
