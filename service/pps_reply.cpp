// PPSReply: the answer to one client of the server object.
#include <unistd.h>

#include <sstream>
#include <string>

#include "platform/pps/pps_encoder.h"
#include "service/pps_server.h"

void PPSServer::PPSReply(const char* object, uint64_t client_id, const char* res, const char* id,
                         const char* dat, int32_t err, bool json) {
    std::ostringstream line;
    line << "@" << object << "." << client_id;
    const std::string object_line = line.str();

    pps_encoder_t encoder;
    pps_encoder_initialize(&encoder, false);
    // The object line addresses the client; the object is not ended. Our
    // encoder writes the at sign of an object line itself, so it is given
    // the name that follows it.
    pps_encoder_start_object(&encoder, object_line.c_str() + 1);
    pps_encoder_add_string(&encoder, "res", res);
    pps_encoder_add_string(&encoder, "id", id);
    if (dat != nullptr) {
        if (json) {
            pps_encoder_add_json(&encoder, "dat", dat);
        } else {
            pps_encoder_add_string(&encoder, "dat", dat);
        }
    }
    if (err != 0) pps_encoder_add_int(&encoder, "err", err);
    if (const char* buffer = pps_encoder_buffer(&encoder); buffer != nullptr) {
        // A client that has gone loses its reply; nothing to report.
        [[maybe_unused]] ssize_t written =
            ::write(fd_, buffer, static_cast<size_t>(pps_encoder_length(&encoder)));
    }
    pps_encoder_cleanup(&encoder);
}
