// In place of the embedded page, where there was nothing to build it with.

#include <tools/view/assets.h>

namespace Zephly::view {

std::span<const Asset> assets() { return {}; }

}  // namespace Zephly::view
