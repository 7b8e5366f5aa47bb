// The upload conformances of the numeric range types: VeltoClosedRange, VeltoDomain and
// VeltoDoubleDomain travel in request bodies as an object {"min": ..., "max": ...}.
//
// Included only at the end of VeltoUploadEncodable.hpp, so that these conformances are visible
// wherever the concept is: a conformance seen in one file and not in another would make the
// concept answer differently for the same type.
#pragma once

#include <string_view>

#include "velto/core/VeltoResult.hpp"
#include "velto/encoding/VeltoEncoder.hpp"
#include "velto/values/VeltoClosedRange.hpp"
#include "velto/values/VeltoDomain.hpp"
#include "velto/values/VeltoDoubleDomain.hpp"

namespace velto::detail {

// One object with "min" and "max", at each of the three destinations: under a key and as an
// element a nested object, as the whole value the top-level object. A bound that fails (a
// non-finite double) stops the object there; the failure is passed up unchanged.
template <class Range, class Bound>
struct MinMaxUploadForms {
  static VeltoResult<void> encodeForUpload(const Range& range, VeltoKeyedEncodingContainer& container, std::string_view key) {
    auto object = container.nestedKeyedContainer(key);
    return writeBounds(range, object);
  }
  static VeltoResult<void> encodeForUpload(const Range& range, VeltoUnkeyedEncodingContainer& container) {
    auto object = container.nestedKeyedContainer();
    return writeBounds(range, object);
  }
  static VeltoResult<void> encodeForUpload(const Range& range, VeltoEncoder& encoder) {
    auto object = encoder.keyedContainer();
    return writeBounds(range, object);
  }

 private:
  static VeltoResult<void> writeBounds(const Range& range, VeltoKeyedEncodingContainer& object) {
    const auto& [min, max] = VeltoUploadConformance<Range>::bounds(range);
    if (auto written = encodeValueForUpload<Bound>(min, object, "min"); !written) return written;
    return encodeValueForUpload<Bound>(max, object, "max");
  }
};

template <class Bound>
struct BoundRefs {
  const Bound& min;
  const Bound& max;
};

}  // namespace velto::detail

/// "min" the lower bound, "max" the upper bound.
template <VeltoUploadEncodable Bound>
struct VeltoUploadConformance<VeltoClosedRange<Bound>> : velto::detail::MinMaxUploadForms<VeltoClosedRange<Bound>, Bound> {
  static velto::detail::BoundRefs<Bound> bounds(const VeltoClosedRange<Bound>& range) noexcept {
    return {range.lowerBound(), range.upperBound()};
  }
};

/// "min" and "max" as stored: a reversed domain uploads min above max.
template <VeltoUploadEncodable T>
struct VeltoUploadConformance<VeltoDomain<T>> : velto::detail::MinMaxUploadForms<VeltoDomain<T>, T> {
  static velto::detail::BoundRefs<T> bounds(const VeltoDomain<T>& domain) noexcept { return {domain.min(), domain.max()}; }
};

/// "min" and "max" as stored, as the double domain's own JSON has them; the range is not sent.
template <>
struct VeltoUploadConformance<VeltoDoubleDomain> : velto::detail::MinMaxUploadForms<VeltoDoubleDomain, double> {
  struct Bounds {
    double min;
    double max;
  };
  static Bounds bounds(const VeltoDoubleDomain& domain) noexcept { return {domain.min(), domain.max()}; }
};
