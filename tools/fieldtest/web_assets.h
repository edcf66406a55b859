// The web screen's page and its assets, built into the program from
// tools/fieldtest/web/ so that it serves them with nothing else installed.
#pragma once

#include <cstddef>
#include <span>

namespace fieldtest {

struct WebAsset {
    const char* path;  // "/screen.js"; the page itself is "/index.html"
    const char* content_type;
    const unsigned char* data;
    size_t size;
};

std::span<const WebAsset> WebAssets();

}  // namespace fieldtest
