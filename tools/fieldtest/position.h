// Where the phone is, as the screen knows it when it takes a sample.
#pragma once

#include <string>

namespace fieldtest {

struct Position {
    bool known = false;                  // a 2D or 3D fix
    double latitude = 0, longitude = 0;  // decimal degrees
    std::string fix_time;                // the fix's own time (ISO 8601, UTC), "" when not given
};

}  // namespace fieldtest
