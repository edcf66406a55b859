// apn_name: the APN of the "internet" connection, changed through the
// connection service's control object and verified against it; the daemon's
// copy, CurrentApnName, follows what the service holds, and diag/config is
// given the name in force back when a change did not take.
#pragma once

// How long each request waits for the connection service's answer. The
// object is opened to wait, and a service that never answers would
// otherwise hold the poll loop for ever; no answer counts as nothing read.
inline constexpr int kApnAnswerTimeoutMs = 3000;

// The action behind apn_name: asks for the new name, then VerifyAPNName.
void SetAPNName(const char* name);
// Reads the APN in force and reconciles CurrentApnName and diag/config with it.
void VerifyAPNName();

// The decoding of the answers (text at most 4095 bytes, terminated; decoded
// in place): the set answer's err is logged; the verification answer is
// reconciled as VerifyAPNName does after its read.
void CheckSetApnAnswerText(char* text);
void ReconcileApnAnswerText(char* text);
