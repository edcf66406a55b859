#include "service/tavora_default.h"

#include "service/tavora_log.h"

void Tavora_Default(PPSServer* /*server*/, void* /*arg*/, uint64_t /*client_id*/, const char* msg,
                    const char* /*id*/, const char* /*dat*/) {
    slogf(kTavoraLogOpcode, kTavoraLogSeverity, "%30s : Tavora: default handler for msg: %s",
          "Tavora_Default", msg);
}
