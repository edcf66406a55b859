// libFuzzer target: any bytes through ppsparse and the decoder, then a walk of
// everything the decoder built. Nothing may crash or read out of bounds.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/pps/pps_decoder.h"
#include "platform/pps/ppsparse.h"

namespace {

void Walk(pps_decoder_t* dec, int depth) {
    for (int n = 0; n < 1000 && pps_decoder_type(dec, nullptr) != PPS_TYPE_NONE; ++n) {
        const char* s = nullptr;
        double d = 0;
        bool b = false;
        int64_t l = 0;
        switch (pps_decoder_type(dec, nullptr)) {
            case PPS_TYPE_OBJECT:
            case PPS_TYPE_ARRAY:
                if (depth < 100 && pps_decoder_push(dec, nullptr) == PPS_DECODER_OK) {
                    (void)pps_decoder_name(dec);
                    Walk(dec, depth + 1);
                    pps_decoder_pop(dec);
                }
                break;
            case PPS_TYPE_NUMBER:
                (void)pps_decoder_get_int64(dec, "x", &l);
                (void)pps_decoder_get_double(dec, nullptr, &d);
                break;
            case PPS_TYPE_BOOL:
                (void)pps_decoder_get_bool(dec, nullptr, &b);
                break;
            default:
                (void)pps_decoder_get_string(dec, nullptr, &s);
                break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<char> text(data, data + size);
    text.push_back('\0');
    std::vector<char> copy = text;

    char* cursor = copy.data();
    pps_attrib_t info{};
    for (pps_status_t kind; (kind = ppsparse(&cursor, nullptr, nullptr, &info, 0)) > PPS_END;) {
    }

    pps_decoder_t dec;
    if (pps_decoder_initialize(&dec, nullptr) != PPS_DECODER_OK) return 0;
    if (pps_decoder_parse_pps_str(&dec, text.data()) == PPS_DECODER_OK) Walk(&dec, 0);
    pps_decoder_cleanup(&dec);
    return 0;
}
