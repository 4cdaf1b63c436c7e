// What the service is told about this machine at login. Every function reads
// the system afresh and may be called from any thread.
#pragma once

#include <string>

namespace vh {

// The DMI product serial when readable and not empty, else the machine id;
// empty when neither can be read.
std::string VHMachineDeviceId();
// The host name, percent-escaped and then escaped as a URL value; "Unknown"
// when the host name is empty.
std::string VHDeviceName();
// The distribution's PRETTY_NAME from os-release; empty when missing.
std::string VHOperatingSystemName();

// Whether the network can be reached: the platform's network information
// says online, or it cannot tell (no backend). Main thread.
bool VHNetworkReachable();

}  // namespace vh
