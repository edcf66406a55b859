// The objects the state renders to, line by line.
#include "tools/devsim/objects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/devsim/scenario.h"

namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::Pair;

TEST(ObjectsTest, UnusableNamesAndValuesAreSafe) {
    json state = json::parse(R"({
      "deviceinfo": {"HardwareID": "a\nb", "bad:name": "x", "-lead": "x", "": "x", "Count": 3},
      "pdns": {"ok": {"connected": true}, "not_object": 5},
      "interfaces": {"../etc": {}, "a/b": {}, "wlan0": {"connected": "yes", "ip_addresses": 7}},
      "status_persistent": 4
    })");
    devsim::RenderedObjects objects = devsim::RenderObjects(state);
    EXPECT_THAT(
        objects[devsim::kDeviceInfoPath],
        ElementsAre(Pair("Count", "Count:n:3"), Pair("HardwareID", R"(HardwareID:json:"a\nb")")));
    EXPECT_THAT(objects[devsim::kConnectionStatusPath],
                ElementsAre(Pair("ok", R"(ok:json:{"connected":true})")));
    EXPECT_EQ(objects.count(devsim::kStatusPersistentPath), 0u);
    EXPECT_THAT(objects[std::string(devsim::kInterfacesDir) + "wlan0"],
                ElementsAre(Pair("connected", "connected:b:false"),
                            Pair("ip_addresses", "ip_addresses:n:7"),
                            Pair("nameservers", "nameservers:json:[]")));
    EXPECT_EQ(objects.size(), 3u);  // no object for the two unusable interface names
}

}  // namespace
