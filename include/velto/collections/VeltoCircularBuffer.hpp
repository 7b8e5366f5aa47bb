// VeltoCircularBuffer<Element>: a fixed-capacity first-in-first-out ring that hands back the
// oldest element when a push would overflow it.
//
//   auto recent = VeltoCircularBuffer<int>::create(3);
//   recent->pushAndPop(1); recent->pushAndPop(2); recent->pushAndPop(3);   // none each time
//   std::optional<int> evicted = recent->pushAndPop(4);                    // 1
//   std::optional<int> oldest = recent->pop();                             // 2
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "velto/detail/Fatal.hpp"

/// A ring of at most `maxCount` elements, oldest first. It owns its elements; storage for
/// `maxCount` is reserved up front, so pushes never reallocate. Pushing onto a full ring and
/// popping are O(1) except that a pop, or a push refilling a gap, moves the later elements by
/// one (O(maxCount)). Not copyable: it has identity and is shared through `create`.
///
/// A buffer of capacity 0 (or less) counts as full from the start, and pushing onto it reads an
/// element that does not exist: a fatal stop. That is deliberate and kept rather than guarded.
/// Thread safety: none; callers serialise access.
template <class Element>
class VeltoCircularBuffer {
 public:
  explicit VeltoCircularBuffer(std::ptrdiff_t maxCount) : maxCount_(maxCount) {
    if (maxCount > 0) buffer_.reserve(static_cast<std::size_t>(maxCount));
  }
  [[nodiscard]] static std::shared_ptr<VeltoCircularBuffer> create(std::ptrdiff_t maxCount) {
    return std::make_shared<VeltoCircularBuffer>(maxCount);
  }
  VeltoCircularBuffer(const VeltoCircularBuffer&) = delete;
  VeltoCircularBuffer& operator=(const VeltoCircularBuffer&) = delete;

  /// Adds `item` as the newest element. While there is room, returns none; once full, removes
  /// and returns the oldest element. REQUIRES: maxCount() > 0 (a fatal stop otherwise).
  std::optional<Element> pushAndPop(Element item) {
    const auto stored = static_cast<std::ptrdiff_t>(buffer_.size());
    if (stored < maxCount_) {
      if (firstIndex_ == 0) {
        buffer_.push_back(std::move(item));
      } else {
        // The slot just before the oldest element is the newest in ring order.
        buffer_.insert(buffer_.begin() + firstIndex_, std::move(item));
        ++firstIndex_;
      }
      return std::nullopt;
    }
    // Deliberately unguarded for capacity 0: reading the absent oldest element stops.
    if (static_cast<std::size_t>(firstIndex_) >= buffer_.size()) {
      velto::detail::fatalStop("VeltoCircularBuffer: index out of range");
    }
    std::optional<Element> oldest(std::move(buffer_[static_cast<std::size_t>(firstIndex_)]));
    buffer_[static_cast<std::size_t>(firstIndex_)] = std::move(item);
    firstIndex_ = (firstIndex_ + 1) % stored;
    return oldest;
  }

  /// Removes and returns the oldest element; none when empty.
  std::optional<Element> pop() {
    if (buffer_.empty()) return std::nullopt;
    const auto position = buffer_.begin() + firstIndex_;
    std::optional<Element> oldest(std::move(*position));
    buffer_.erase(position);
    firstIndex_ = buffer_.empty() ? 0 : firstIndex_ % static_cast<std::ptrdiff_t>(buffer_.size());
    return oldest;
  }

  [[nodiscard]] std::ptrdiff_t count() const noexcept { return static_cast<std::ptrdiff_t>(buffer_.size()); }
  [[nodiscard]] std::ptrdiff_t maxCount() const noexcept { return maxCount_; }

 private:
  const std::ptrdiff_t maxCount_;
  std::vector<Element> buffer_;
  std::ptrdiff_t firstIndex_ = 0;
};
