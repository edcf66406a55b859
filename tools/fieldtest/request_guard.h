// What the web screen refuses before any route runs. The page changes the
// modem's settings, so a page of another site loaded in the same browser
// must not be able to: through a name that resolves to this server (DNS
// rebinding) it is refused by its Host, and a cross-site request that a
// browser sends without asking (a form post, a no-cors fetch) carries a
// foreign Origin or a type other than JSON.
#pragma once

#include <string>

namespace fieldtest {

struct RequestFacts {
    std::string method;
    std::string host;  // the Host header ("" when absent)
    bool has_origin = false;
    std::string origin;        // the Origin header
    std::string content_type;  // the Content-Type header
};

struct Refusal {
    int status = 0;  // 0: served
    std::string reason;
};

// Whether `host` (a Host header) names the server listening on
// listen_host:port: that address or "localhost" with the port (the port may
// be left out only when it is 80). A server on every address (0.0.0.0)
// takes any IP address with its port: a name other than localhost is what
// a rebinding page would send.
bool HostNamesServer(const std::string& host, const std::string& listen_host, int port);

// 421 for a Host that does not name the server (every route); for a method
// that changes state (POST, PUT, PATCH, DELETE) 403 when Origin is present
// and is not the page's own ("http://" + Host), 415 when the body is not
// application/json.
Refusal CheckRequest(const RequestFacts& request, const std::string& listen_host, int port);

}  // namespace fieldtest
