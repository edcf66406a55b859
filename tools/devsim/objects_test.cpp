// The objects the state renders to, line by line.
#include "tools/devsim/objects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/devsim/scenario.h"

namespace {

using nlohmann::json;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Pair;

TEST(ObjectsTest, DefaultPublishesEveryObject) {
    devsim::RenderedObjects objects = devsim::RenderObjects(devsim::DefaultScenario());
    EXPECT_THAT(objects[devsim::kDeviceInfoPath],
                ElementsAre(Pair("HardwareID", "HardwareID::0x52c0f9e4")));
    EXPECT_THAT(objects[devsim::kStatusPersistentPath],
                ElementsAre(Pair("configure_rats_state",
                                 R"(configure_rats_state:json:{"enabled_technologies":18})")));
    EXPECT_EQ(objects[devsim::kConnectionStatusPath].size(), 5u);
    EXPECT_THAT(
        objects[devsim::kConnectionStatusPath],
        Contains(Pair(
            "internet",
            R"(internet:json:{"apn":"vzwinternet","connected":true,"net_if":"rmnet2","net_if_IPv6":"rmnet2"})")));
    EXPECT_THAT(
        objects[std::string(devsim::kInterfacesDir) + "rmnet2"],
        ElementsAre(
            Pair("connected", "connected:b:true"),
            Pair("ip_addresses", R"(ip_addresses:json:["100.66.12.9/29","fe80::5c:2/64"])"),
            Pair("nameservers", R"(nameservers:json:["198.224.166.135","198.224.167.135"])")));
}

TEST(ObjectsTest, NullLeavesObjectsOut) {
    json state = devsim::DefaultScenario();
    state.merge_patch(json::parse(R"({"deviceinfo": null, "status_persistent": null,
                                      "interfaces": {"rmnet1": null}})"));
    devsim::RenderedObjects objects = devsim::RenderObjects(state);
    EXPECT_EQ(objects.count(devsim::kDeviceInfoPath), 0u);
    EXPECT_EQ(objects.count(devsim::kStatusPersistentPath), 0u);
    EXPECT_EQ(objects.count(std::string(devsim::kInterfacesDir) + "rmnet1"), 0u);
    EXPECT_EQ(objects.count(std::string(devsim::kInterfacesDir) + "rmnet0"), 1u);
}

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
