// strnicmp: compare at most n characters without regard to ASCII case.
#pragma once

#include <cstddef>

int strnicmp(const char* a, const char* b, std::size_t n);
