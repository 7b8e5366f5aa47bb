// VeltoPointerUtil: raw-pointer access to byte buffers and typed arrays.
//
//   std::vector<int> copy = VeltoPointerUtil::arrayFromPointer(values, 3);
//   const std::uint8_t* first = VeltoPointerUtil::pointerFromData<std::uint8_t>(data);
//   VeltoResult<std::uint32_t> sum = VeltoPointerUtil::executeWithUnsafePointer<std::uint8_t, std::uint32_t>(
//       data, [](const std::uint8_t* bytes, std::size_t length) -> std::optional<VeltoResult<std::uint32_t>> {
//         return std::accumulate(bytes, bytes + length, std::uint32_t{0});
//       });
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "velto/core/VeltoData.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/detail/TypeName.hpp"

/// Static operations only; holds no state. Pointers handed out borrow the buffer: they stay
/// valid while the buffer lives and is not resized. Typed views of a VeltoData assume T is a
/// trivially copyable type whose alignment the buffer's allocation satisfies (any fundamental
/// type). Thread safety: as the buffers passed in.
class VeltoPointerUtil {
 public:
  VeltoPointerUtil() = delete;

  /// Copies of the `count` elements starting at `pointer`. REQUIRES: count >= 0 (a fatal stop
  /// otherwise) and `pointer` addresses at least `count` elements (null only for count 0).
  template <class T>
  [[nodiscard]] static std::vector<T> arrayFromPointer(const T* pointer, std::int64_t count) {
    if (count < 0) velto::detail::fatalStop("VeltoPointerUtil: negative element count");
    if (count == 0) return {};
    return std::vector<T>(pointer, pointer + count);
  }

  /// The first byte of `data` as a T pointer; null when the buffer has no storage. Valid while
  /// `data` lives unchanged.
  template <class T = std::byte>
    requires std::is_trivially_copyable_v<T>
  [[nodiscard]] static const T* pointerFromData(const VeltoData& data) noexcept {
    return data.empty() ? nullptr : reinterpret_cast<const T*>(data.data());
  }

  /// Calls `executeUnsafe(const T* base, std::size_t lengthInBytes)` with temporary access to
  /// `data`'s bytes and returns its result. The callable returns an optional VeltoResult<U>.
  /// Failures (site "Util/VeltoPointerUtil" / "executeWithUnsafePointer(data:executeUnsafe:)",
  /// arguments "data", "T", "U" with the element types' names):
  ///   "Failed to get base address"  `data` is empty (it has no storage to point at);
  ///   "No execution result"         the callable returned nothing;
  ///   the callable's own failure, passed up with one frame added.
  /// The length passed is in bytes, not elements. Exceptions from the callable propagate.
  template <class T, class U, class Callable>
    requires std::is_trivially_copyable_v<T> &&
             std::same_as<std::invoke_result_t<Callable&, const T*, std::size_t>, std::optional<VeltoResult<U>>>
  [[nodiscard]] static VeltoResult<U> executeWithUnsafePointer(const VeltoData& data, Callable&& executeUnsafe) {
    const T* base = pointerFromData<T>(data);
    if (base == nullptr) {
      return VeltoResult<U>::fromMessage("Failed to get base address", failureArgs<T, U>(data), nullptr, kNoBaseAddressSite);
    }
    std::optional<VeltoResult<U>> executed = executeUnsafe(base, data.size());
    if (!executed) return VeltoResult<U>::fromMessage("No execution result", failureArgs<T, U>(data), nullptr, kNoResultSite);
    if (executed->isFailure()) return VeltoResult<U>::fromError(executed->error(), failureArgs<T, U>(data), kFailedSite);
    return std::move(*executed);
  }

 private:
  template <class T, class U>
  static VeltoAny failureArgs(const VeltoData& data) {
    return {{"data", data}, {"T", velto::detail::typeName<T>()}, {"U", velto::detail::typeName<U>()}};
  }

  // The lines are fixed so that recorded trails stay comparable with those of earlier releases.
  static constexpr char kFile[] = "Util/VeltoPointerUtil";
  static constexpr char kFunction[] = "executeWithUnsafePointer(data:executeUnsafe:)";
  static constexpr VeltoCodeSite kNoBaseAddressSite{kFile, kFunction, 30};
  static constexpr VeltoCodeSite kNoResultSite{kFile, kFunction, 35};
  static constexpr VeltoCodeSite kFailedSite{kFile, kFunction, 40};
};
