#include "velto/values/VeltoFileSize.hpp"

#include <cmath>

#include "velto/detail/Fatal.hpp"

namespace {

constexpr std::uint64_t kKilo = 1000;
constexpr std::uint64_t kKibi = 1024;

constexpr std::uint64_t power(std::uint64_t base, int exponent) noexcept {
  std::uint64_t result = 1;
  for (int i = 0; i < exponent; ++i) result *= base;
  return result;
}

std::uint64_t checkedProduct(std::uint64_t lhs, std::uint64_t rhs) noexcept {
  std::uint64_t product = 0;
  if (__builtin_mul_overflow(lhs, rhs, &product)) velto::detail::fatalStop("VeltoFileSize: size overflows 64 bits");
  return product;
}

// Deliberately in double precision (rounds above 2^53 bits), kept for compatibility.
std::uint64_t bytesFromBits(std::uint64_t bits) noexcept {
  return static_cast<std::uint64_t>(std::floor(static_cast<double>(bits) * 0.125));
}

}  // namespace

VeltoFileSize VeltoFileSize::fromBits(std::uint64_t count) noexcept { return VeltoFileSize(count, bytesFromBits(count)); }
VeltoFileSize VeltoFileSize::fromBytes(std::uint64_t count) noexcept { return VeltoFileSize(bitsFrom(count), count); }

VeltoFileSize VeltoFileSize::fromBitsTimes(std::uint64_t count, std::uint64_t multiple) noexcept {
  return fromBits(checkedProduct(count, multiple));
}

VeltoFileSize VeltoFileSize::fromBytesTimes(std::uint64_t count, std::uint64_t multiple) noexcept {
  return fromBytes(checkedProduct(count, multiple));
}

VeltoFileSize VeltoFileSize::fromKiloBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKilo, 1)); }
VeltoFileSize VeltoFileSize::fromKibiBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKibi, 1)); }
VeltoFileSize VeltoFileSize::fromMegaBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKilo, 2)); }
VeltoFileSize VeltoFileSize::fromMebiBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKibi, 2)); }
VeltoFileSize VeltoFileSize::fromGigaBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKilo, 3)); }
VeltoFileSize VeltoFileSize::fromGibiBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKibi, 3)); }
VeltoFileSize VeltoFileSize::fromTeraBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKilo, 4)); }
VeltoFileSize VeltoFileSize::fromTebiBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKibi, 4)); }
VeltoFileSize VeltoFileSize::fromPetaBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKilo, 5)); }
VeltoFileSize VeltoFileSize::fromPebiBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKibi, 5)); }
VeltoFileSize VeltoFileSize::fromExaBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKilo, 6)); }
VeltoFileSize VeltoFileSize::fromExbiBits(std::uint64_t count) noexcept { return fromBitsTimes(count, power(kKibi, 6)); }

VeltoFileSize VeltoFileSize::fromKiloBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKilo, 1)); }
VeltoFileSize VeltoFileSize::fromKibiBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKibi, 1)); }
VeltoFileSize VeltoFileSize::fromMegaBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKilo, 2)); }
VeltoFileSize VeltoFileSize::fromMebiBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKibi, 2)); }
VeltoFileSize VeltoFileSize::fromGigaBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKilo, 3)); }
VeltoFileSize VeltoFileSize::fromGibiBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKibi, 3)); }
VeltoFileSize VeltoFileSize::fromTeraBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKilo, 4)); }
VeltoFileSize VeltoFileSize::fromTebiBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKibi, 4)); }
VeltoFileSize VeltoFileSize::fromPetaBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKilo, 5)); }
VeltoFileSize VeltoFileSize::fromPebiBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKibi, 5)); }
VeltoFileSize VeltoFileSize::fromExaBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKilo, 6)); }
VeltoFileSize VeltoFileSize::fromExbiBytes(std::uint64_t count) noexcept { return fromBytesTimes(count, power(kKibi, 6)); }

std::uint64_t VeltoFileSize::bitsFrom(std::uint64_t bytes) noexcept { return checkedProduct(bytes, bitsInByte); }

VeltoFileSize operator+(const VeltoFileSize& lhs, const VeltoFileSize& rhs) noexcept {
  std::uint64_t sum = 0;
  if (__builtin_add_overflow(lhs.bits(), rhs.bits(), &sum)) velto::detail::fatalStop("VeltoFileSize: sum overflows 64 bits");
  return VeltoFileSize::fromBits(sum);
}

VeltoFileSize::Diff operator-(const VeltoFileSize& lhs, const VeltoFileSize& rhs) noexcept {
  if (lhs.bits() < rhs.bits()) return VeltoFileSize::Diff::negative(VeltoFileSize::fromBits(rhs.bits() - lhs.bits()));
  return VeltoFileSize::Diff::positive(VeltoFileSize::fromBits(lhs.bits() - rhs.bits()));
}
