#pragma once

#include <cstdio>
#include <cstdlib>

// A violated property is a finding: report it and abort so the fuzzer keeps the input.
#define FUZZ_CHECK(condition)                                                                  \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            fprintf(stderr, "%s:%d: property violated: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                           \
        }                                                                                      \
    } while (0)
