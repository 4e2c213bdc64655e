#pragma once

namespace zo_tarvel {

// Whether the system has a route to a public address of either family that doesn't end in this
// host. Decided locally: no packet is sent and no name is looked up. Any thread.
bool IsInternetReachable();

}  // namespace zo_tarvel
