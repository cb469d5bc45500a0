// What may be copied whole into a message and out of one.
#pragma once

#include <type_traits>

namespace tessel {

template <typename T>
concept WireRecord = std::is_trivially_copyable_v<T> && std::is_standard_layout_v<T>;

}  // namespace tessel
