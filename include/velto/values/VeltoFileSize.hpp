// VeltoFileSize: an amount of data, kept in bits, so that sizes given in bits or bytes, with
// decimal (1000-based) or binary (1024-based) multiples, mix and compare exactly.
//
//   const auto limit = VeltoFileSize::fromKibiBytes(64);        // 524288 bits, 65536 bytes
//   if (VeltoFileSize::fromBytes(data.size()) < limit) ...
//   const VeltoFileSize::Diff diff = a - b;                      // magnitude and sign
//   if (diff.isNegative()) ...
#pragma once

#include <boost/describe/class.hpp>

#include <compare>
#include <cstdint>
#include <string_view>
#include <variant>

#include "velto/core/VeltoResult.hpp"

class VeltoKeyedEncodingContainer;
class VeltoDynamicDebugEncoder;

/// A size in bits plus the whole bytes it holds. Regular, immutable value type.
///
/// Only `bits` takes part in equality, ordering and arithmetic. Every constructor and the sum
/// check for overflow: a size that does not fit in 64 unsigned bits is a fatal stop, never a
/// wrapped or saturated value.
/// Thread safety: immutable; copies may travel between threads.
class VeltoFileSize {
 public:
  class Diff;

  /// 0 bits, 0 bytes.
  static const VeltoFileSize zero;
  static constexpr std::uint64_t bitsInByte = 8;

  /// `count` bits; the whole bytes from bits (see bytesEntire()).
  [[nodiscard]] static VeltoFileSize fromBits(std::uint64_t count) noexcept;
  /// `count` bytes, `count` x 8 bits. REQUIRES (each byte constructor): the bits fit in 64
  /// unsigned bits, else a fatal stop.
  [[nodiscard]] static VeltoFileSize fromBytes(std::uint64_t count) noexcept;

  // Bit multiples: bits = count x the multiple; whole bytes from bits. REQUIRES: the bits fit.
  [[nodiscard]] static VeltoFileSize fromKiloBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromKibiBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromMegaBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromMebiBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromGigaBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromGibiBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromTeraBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromTebiBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromPetaBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromPebiBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromExaBits(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromExbiBits(std::uint64_t count) noexcept;

  // Byte multiples: whole bytes = count x the multiple (exact), bits = bytes x 8. REQUIRES: both
  // fit, so fromExbiBytes accepts only 0 and 1 and fromExaBytes only up to 2.
  [[nodiscard]] static VeltoFileSize fromKiloBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromKibiBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromMegaBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromMebiBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromGigaBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromGibiBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromTeraBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromTebiBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromPetaBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromPebiBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromExaBytes(std::uint64_t count) noexcept;
  [[nodiscard]] static VeltoFileSize fromExbiBytes(std::uint64_t count) noexcept;

  /// `bytes` x 8. REQUIRES: the product fits in 64 unsigned bits, else a fatal stop.
  [[nodiscard]] static std::uint64_t bitsFrom(std::uint64_t bytes) noexcept;

  [[nodiscard]] constexpr std::uint64_t bits() const noexcept { return bits_; }
  /// The whole bytes in bits(). Sizes made from bits (and sums and differences) compute it in
  /// double precision (bits x 0.125, rounded down); above 2^53 bits that can differ from exact
  /// division by 8. The rounding is deliberate and kept for compatibility. Byte constructors
  /// set it exactly.
  [[nodiscard]] constexpr std::uint64_t bytesEntire() const noexcept { return bytesEntire_; }

  [[nodiscard]] friend constexpr bool operator==(const VeltoFileSize& lhs, const VeltoFileSize& rhs) noexcept {
    return lhs.bits_ == rhs.bits_;
  }
  [[nodiscard]] friend constexpr std::strong_ordering operator<=>(const VeltoFileSize& lhs,
                                                                  const VeltoFileSize& rhs) noexcept {
    return lhs.bits_ <=> rhs.bits_;
  }

  /// Debug output of the stored fields: "bits", "bytesEntire".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  constexpr VeltoFileSize(std::uint64_t bits, std::uint64_t bytesEntire) noexcept : bits_(bits), bytesEntire_(bytesEntire) {}
  [[nodiscard]] static VeltoFileSize fromBitsTimes(std::uint64_t count, std::uint64_t multiple) noexcept;
  [[nodiscard]] static VeltoFileSize fromBytesTimes(std::uint64_t count, std::uint64_t multiple) noexcept;

  std::uint64_t bits_;
  std::uint64_t bytesEntire_;
};

inline constexpr VeltoFileSize VeltoFileSize::zero{0, 0};

/// The signed difference of two sizes: a tagged variant with the cases `positive` and
/// `negative`, each carrying the magnitude. Regular value type. Thread safety: immutable.
class VeltoFileSize::Diff {
 public:
  struct Positive {
    static constexpr std::string_view caseName = "positive";
    VeltoFileSize size;
    friend bool operator==(const Positive&, const Positive&) = default;
  };
  struct Negative {
    static constexpr std::string_view caseName = "negative";
    VeltoFileSize size;
    friend bool operator==(const Negative&, const Negative&) = default;
  };

  [[nodiscard]] static Diff positive(VeltoFileSize size) noexcept { return Diff(Positive{size}); }
  [[nodiscard]] static Diff negative(VeltoFileSize size) noexcept { return Diff(Negative{size}); }

  [[nodiscard]] const std::variant<Positive, Negative>& cases() const noexcept { return cases_; }
  [[nodiscard]] bool isNegative() const noexcept { return cases_.index() == 1; }
  /// The payload of either case.
  [[nodiscard]] VeltoFileSize magnitude() const noexcept {
    return std::visit([](const auto& c) { return c.size; }, cases_);
  }

  friend bool operator==(const Diff&, const Diff&) = default;

 private:
  explicit Diff(std::variant<Positive, Negative> cases) noexcept : cases_(cases) {}
  std::variant<Positive, Negative> cases_;
};

/// The sum; whole bytes from bits. REQUIRES: the bits fit, else a fatal stop.
[[nodiscard]] VeltoFileSize operator+(const VeltoFileSize& lhs, const VeltoFileSize& rhs) noexcept;
/// |lhs - rhs| as a size (whole bytes from bits), tagged negative when lhs < rhs, otherwise
/// positive (equal sizes give positive zero).
[[nodiscard]] VeltoFileSize::Diff operator-(const VeltoFileSize& lhs, const VeltoFileSize& rhs) noexcept;

BOOST_DESCRIBE_STRUCT(VeltoFileSize::Diff::Positive, (), (size))
BOOST_DESCRIBE_STRUCT(VeltoFileSize::Diff::Negative, (), (size))
