#pragma once

namespace port {

// Tells the collecting service, by its key, where the folder of the dumps that the service writes
// by itself holds more than its limit. The service does so too, but its own measure ends at the
// first entry without a size, such as lost+found, and may miss all that the folder holds. To be
// called at the start and after each dump; while the key is set, the service writes no further
// ones.
void WatchCollectingFolder();

}  // namespace port
