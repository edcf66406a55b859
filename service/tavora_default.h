// The handler of every request whose name has no handler of its own.
#pragma once

#include <cstdint>

#include "service/pps_server.h"

// Logs the name; sends no reply, so the client gets no answer.
void Tavora_Default(PPSServer* server, void* arg, uint64_t client_id, const char* msg,
                    const char* id, const char* dat);
