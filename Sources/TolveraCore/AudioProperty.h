#pragma once

#include "Platform/AudioHardware.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <variant>

namespace tolvera {

// The value of an audio object's property in the global scope; absent if the read fails or there is no value
// of this type.
template<typename T>
[[nodiscard]] std::optional<T> audioProperty(const platform::AudioHardware& hardware,
                                             platform::AudioObjectID object, std::uint32_t selector,
                                             std::optional<std::int32_t> qualifier = std::nullopt) {
  auto result = hardware.property(object, {.selector = selector, .qualifier = qualifier});
  T* value = result.status == 0 ? std::get_if<T>(&result.value) : nullptr;
  return value ? std::optional(std::move(*value)) : std::nullopt;
}

} // namespace tolvera
