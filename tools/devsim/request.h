// Requests as a server object receives them from the broker, and the
// replies devsim sends back.
//
//   @control.5          the client's id after the last '.'
//   msg::get_leaf_node
//   id::3323
//   dat::./ManagedObjects/ConnMO/LTE/APN/3/Setting/Name
//
// Connect and disconnect lines ("+@control.5...", "-@control.5") carry no
// request and are skipped.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace devsim {

struct Request {
    std::string object;  // "control.5", as the object line named it
    uint64_t client_id = 0;
    std::string msg;
    std::string id;
    std::string dat;          // the value text as written
    nlohmann::json dat_json;  // `dat` decoded when written as JSON, else null
    std::string summary;      // the attribute lines joined by spaces, for the log
};

// The request in one message, if it has an object line naming a client and
// at least one attribute. Safe on any bytes: text after a NUL or a line
// that does not parse ends the request there.
std::optional<Request> ParseRequest(std::string_view message);

// The reply to `request`: "@<object>" (to that client only), res and id
// echoed, then `lines` as given.
std::string RenderReply(const Request& request, const std::vector<std::string>& lines);

}  // namespace devsim
