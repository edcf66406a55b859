// Enabled RATs: the menu setting enabled_rats of diag/config, the
// configure_rats request to the radio control service and the setting in
// force reported by status_persistent, kept in step within what the
// device's hardware class supports.
#pragma once

#include <cstdint>

class PPSServer;

// RAT settings are bit masks: 2 WCDMA, 4 CDMA 1x, 8 EVDO, 16 LTE; 0 none.
// A menu name's code is its setting.

// The setting last sent to the modem or accepted from it; -1 when none.
extern int32_t current_rat;
// -1: the next change of the persistent status is skipped; 0: processed.
extern int32_t skip_rats_state;

bool Is_Rat_Supported(int32_t setting);
void Enable_Rat(int32_t setting);
void Update_Rat_Menu(int32_t setting);
// Reads status_persistent and follows the setting the modem reports.
void GetRatsState();
// The watcher callback on persist_fd: ignores its arguments.
void GetRatsStateWatcher(PPSServer* server, void* arg, int fd);

// enabled_rats given as a string in a configuration delta.
void SelectRatByName(const char* name);
// A configuration delta without enabled_rats: follow the modem's report now.
void ClearSkipAndGetRatsState();

// Tests only: back to the start-up state (current_rat -1, skip_rats_state -1).
void ResetEnabledRatsForTest();
