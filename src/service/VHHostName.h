// Host names that the service hands out (a domain's "Url", a share's gateway)
// are spliced into the host part of request URLs. Any thread.
#pragma once

#include <string_view>

namespace vh {

// Letters, digits, ".", "-" and ":" only, and not empty: a "/", "@", "?" or
// "#" would send the request, with its password or token, to another host.
bool VHIsHostName(std::string_view text);

}  // namespace vh
