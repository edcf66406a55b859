// libFuzzer target: any message a served control object can receive,
// parsed, answered by each service and rendered as a reply.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tools/devsim/answers.h"
#include "tools/devsim/request.h"
#include "tools/devsim/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const nlohmann::json state = devsim::DefaultScenario();
    std::optional<devsim::Request> request =
        devsim::ParseRequest(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!request) return 0;
    for (auto answer :
         {devsim::AnswerConnectionService, devsim::AnswerOmadm, devsim::AnswerRadioControl}) {
        devsim::RenderReply(*request, answer(state, *request).lines);
    }
    return 0;
}
