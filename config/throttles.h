// ims_enable, evdo_enable and onex_enable: IMS test mode and EVDO and 1x
// throttling, applied by the modem through the vendor state request. A
// refused change is written back to diag/config as the opposite value; the
// 1x action also reads the 1x state back from the modem.
#pragma once

// Each takes the attribute's text: exactly "1" asks for state 1, anything
// else for state 0.
void SetIMSTestMode(const char* value);
void SetEVDOThrottle(const char* value);
void Set1XThrottle(const char* value);
