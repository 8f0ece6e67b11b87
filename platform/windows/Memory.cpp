#include "platform/Memory.h"

namespace kqlib::platform {

// The system's heap gives large blocks back by itself.
void GiveBackLargeBlocks() {}

} // namespace kqlib::platform
