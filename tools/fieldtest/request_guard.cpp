#include "tools/fieldtest/request_guard.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>

namespace fieldtest {

namespace {

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool IsIpAddress(const std::string& name) {
    unsigned char bytes[16];
    if (name.size() > 2 && name.front() == '[' && name.back() == ']')
        return ::inet_pton(AF_INET6, name.substr(1, name.size() - 2).c_str(), bytes) == 1;
    return ::inet_pton(AF_INET, name.c_str(), bytes) == 1;
}

}  // namespace

bool HostNamesServer(const std::string& host, const std::string& listen_host, int port) {
    std::string name = Lower(host);
    std::string port_text = std::to_string(port);
    size_t colon = name.rfind(':');
    if (colon != std::string::npos && name.find(']', colon) == std::string::npos) {
        if (name.substr(colon + 1) != port_text) return false;
        name.erase(colon);
    } else if (port != 80) {
        return false;
    }
    if (name == "localhost" || name == Lower(listen_host)) return true;
    return listen_host == "0.0.0.0" && IsIpAddress(name);
}

Refusal CheckRequest(const RequestFacts& request, const std::string& listen_host, int port) {
    if (!HostNamesServer(request.host, listen_host, port))
        return {421, "this server does not answer for host '" + request.host + "'"};
    const std::string& method = request.method;
    if (method != "POST" && method != "PUT" && method != "PATCH" && method != "DELETE") return {};
    if (request.has_origin && Lower(request.origin) != "http://" + Lower(request.host))
        return {403, "requests from another origin cannot change anything here"};
    std::string type = Lower(request.content_type.substr(0, request.content_type.find(';')));
    type.erase(
        std::remove_if(type.begin(), type.end(), [](unsigned char c) { return std::isspace(c); }),
        type.end());
    if (type != "application/json") return {415, "the body must be application/json"};
    return {};
}

}  // namespace fieldtest
