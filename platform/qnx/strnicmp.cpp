#include "platform/qnx/strnicmp.h"

#include <cctype>

int strnicmp(const char* a, const char* b, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        int ca = std::tolower(static_cast<unsigned char>(a[i]));
        int cb = std::tolower(static_cast<unsigned char>(b[i]));
        if (ca != cb) return ca - cb;
        if (ca == 0) return 0;
    }
    return 0;
}
