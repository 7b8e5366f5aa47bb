// First, so that this test proves the empty parameters' header complete on its own (the upload
// header's source proves that one).
#include <velto/encoding/VeltoEmptyRequestParameters.hpp>
#include <velto/encoding/VeltoUploadEncodable.hpp>

#include <boost/json.hpp>
#include <boost/uuid/string_generator.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <set>
#include <variant>

namespace {

enum class Verb { get, post };
BOOST_DESCRIBE_ENUM(Verb, get, post)

enum class Quiet { on, off };  // raw-representable, but does not opt in
BOOST_DESCRIBE_ENUM(Quiet, on, off)

enum class Keyword { default_, static_ };
BOOST_DESCRIBE_ENUM(Keyword, default_, static_)

}  // namespace

template <>
struct VeltoRawValueTraits<Verb> {
  using RawValue = std::string_view;
  static constexpr std::string_view rawValue(Verb verb) noexcept { return verb == Verb::get ? "GET" : "POST"; }
  static constexpr std::optional<Verb> fromRawValue(std::string_view raw) noexcept {
    if (raw == "GET") return Verb::get;
    if (raw == "POST") return Verb::post;
    return std::nullopt;
  }
};
template <>
inline constexpr bool VeltoUploadsCaseName<Verb> = true;

template <>
struct VeltoRawValueTraits<Quiet> {
  using RawValue = int;
  static constexpr int rawValue(Quiet quiet) noexcept { return static_cast<int>(quiet); }
  static constexpr std::optional<Quiet> fromRawValue(int raw) noexcept {
    if (raw == 0 || raw == 1) return static_cast<Quiet>(raw);
    return std::nullopt;
  }
};

template <>
struct VeltoRawValueTraits<Keyword> {
  using RawValue = int;
  static constexpr int rawValue(Keyword k) noexcept { return static_cast<int>(k); }
  static constexpr std::optional<Keyword> fromRawValue(int raw) noexcept {
    if (raw == 0 || raw == 1) return static_cast<Keyword>(raw);
    return std::nullopt;
  }
};
template <>
inline constexpr bool VeltoUploadsCaseName<Keyword> = true;

namespace {

// The table's conformances and its deliberate gaps.
static_assert(VeltoUploadEncodable<std::string> && VeltoUploadEncodable<bool> && VeltoUploadEncodable<double>);
static_assert(VeltoUploadEncodable<std::int64_t> && VeltoUploadEncodable<long long>);
static_assert(VeltoUploadEncodable<std::uint8_t> && VeltoUploadEncodable<std::uint32_t> && VeltoUploadEncodable<std::uint64_t>);
static_assert(VeltoUploadEncodable<boost::uuids::uuid> && VeltoUploadEncodable<Verb>);
static_assert(VeltoUploadEncodable<std::vector<std::vector<std::string>>> && VeltoUploadEncodable<std::unordered_set<std::string>>);
static_assert(VeltoUploadEncodable<VeltoEmptyRequestParameters> && VeltoUploadEncodable<VeltoSensitiveString> &&
              VeltoUploadEncodable<VeltoSensitiveData>);
static_assert(!VeltoUploadEncodable<int> && !VeltoUploadEncodable<short> && !VeltoUploadEncodable<float>);
static_assert(!VeltoUploadEncodable<std::int8_t> && !VeltoUploadEncodable<std::int16_t> && !VeltoUploadEncodable<std::uint16_t>);
static_assert(!VeltoUploadEncodable<char> && !VeltoUploadEncodable<char32_t> && !VeltoUploadEncodable<const char*>);
static_assert(!VeltoUploadEncodable<std::vector<int>> && !VeltoUploadEncodable<std::set<std::string>>);
static_assert(!VeltoUploadEncodable<std::optional<std::string>> && !VeltoUploadEncodable<Quiet> &&
              !VeltoUploadEncodable<VeltoData>);
static_assert(VeltoUploadEncodable<VeltoClosedRange<double>> && VeltoUploadEncodable<VeltoClosedRange<std::string>>);
static_assert(VeltoUploadEncodable<VeltoDomain<std::int64_t>> && VeltoUploadEncodable<VeltoDoubleDomain>);
static_assert(VeltoUploadEncodable<std::vector<VeltoDomain<double>>>);
static_assert(!VeltoUploadEncodable<VeltoDomain<int>> && !VeltoUploadEncodable<VeltoClosedRange<float>>,
              "bounds without an upload encoding of their own have none either");

// The JSON text of `value` written at each of the three destinations; in a container it stands
// between two siblings, which show that it closed what it opened and overwrote nothing.
struct Placed {
  std::string whole;
  std::string keyed;
  std::string element;
};

template <class T>
Placed placed(const T& value) {
  Placed out;
  {
    VeltoEncodingDocument document;
    auto encoder = document.encoder();
    EXPECT_TRUE(encodeValueForUpload(value, encoder));
    out.whole = document.jsonText();
  }
  {
    VeltoEncodingDocument document;
    auto container = document.encoder().keyedContainer();
    EXPECT_TRUE(container.encode("a", 0));
    EXPECT_TRUE(encodeValueForUpload(value, container, "k"));
    EXPECT_TRUE(container.encode("z", 0));
    out.keyed = document.jsonText();
  }
  {
    VeltoEncodingDocument document;
    auto container = document.encoder().unkeyedContainer();
    EXPECT_TRUE(container.encode(0));
    EXPECT_TRUE(encodeValueForUpload(value, container));
    EXPECT_TRUE(container.encode(0));
    out.element = document.jsonText();
  }
  return out;
}

#define EXPECT_PLACED(value, text)                                   \
  do {                                                               \
    const Placed p = placed(value);                                  \
    EXPECT_EQ(p.whole, text);                                        \
    EXPECT_EQ(p.keyed, std::string("{\"a\":0,\"k\":") + text + ",\"z\":0}"); \
    EXPECT_EQ(p.element, std::string("[0,") + text + ",0]");         \
  } while (false)

TEST(VeltoUploadEncodable, writesEachConformanceAlikeAtAllThreeDestinations) {
  EXPECT_PLACED(std::string("a \"quoted\"\n\xC3\xA9"), "\"a \\\"quoted\\\"\\n\xC3\xA9\"");
  EXPECT_PLACED(true, "true");
  EXPECT_PLACED(-0.1, "-0.1");
  EXPECT_PLACED(std::int64_t{-9007199254740993}, "-9007199254740993");
  EXPECT_PLACED(std::numeric_limits<std::int64_t>::min(), "-9223372036854775808");
  EXPECT_PLACED(std::uint8_t{255}, "255");
  EXPECT_PLACED(std::uint32_t{4294967295u}, "4294967295");
  EXPECT_PLACED(std::numeric_limits<std::uint64_t>::max(), "18446744073709551615");
  EXPECT_PLACED(boost::uuids::string_generator()("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"),
                "\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\"");
  EXPECT_PLACED(Verb::post, "\"post\"");  // the case name, deliberately not "POST"
  EXPECT_PLACED(Keyword::default_, "\"default\"");
  EXPECT_PLACED(VeltoSensitiveString("hunter2"), "\"hunter2\"");
  EXPECT_PLACED(VeltoSensitiveData(VeltoData{std::byte{0xFF}, std::byte{0x00}, std::byte{0x41}, std::byte{0x42}}),
                "\"/wBBQg==\"");
  EXPECT_PLACED(VeltoEmptyRequestParameters(), "{}");
  EXPECT_PLACED(std::vector<std::string>{}, "[]");  // an empty list is present, not absent
  EXPECT_PLACED((std::vector<std::vector<std::int64_t>>{{1, 2}, {}, {3}}), "[[1,2],[],[3]]");
  EXPECT_PLACED((std::vector<bool>{true, false}), "[true,false]");
  EXPECT_PLACED((std::vector<VeltoEmptyRequestParameters>(2)), "[{},{}]");
  // Ranges and domains are {"min", "max"}, in their own orientation.
  EXPECT_PLACED(VeltoClosedRange<double>(0.5, 2), R"({"min":0.5,"max":2})");
  EXPECT_PLACED(VeltoDomain<std::uint64_t>(10, 2), R"({"min":10,"max":2})");
  EXPECT_PLACED(VeltoClosedRange<std::string>("a", "b"), R"({"min":"a","max":"b"})");
  EXPECT_PLACED(VeltoDoubleDomain::normalReversed, R"({"min":1,"max":0})");
  // A double domain whose range overflows still has finite bounds, and only those are sent.
  EXPECT_PLACED(VeltoDoubleDomain::greatestFiniteMagnitude, R"({"min":-1.7976931348623157e+308,"max":1.7976931348623157e+308})");
  EXPECT_PLACED(std::vector<VeltoDomain<double>>{}, "[]");
  // A set, in its own iteration order.
  const std::unordered_set<std::string> set{"alpha", "beta", "gamma"};
  std::string inOrder = "[";
  for (const auto& element : set) inOrder += (inOrder.size() > 1 ? ",\"" : "\"") + element + "\"";
  inOrder += "]";
  EXPECT_PLACED(set, inOrder);
}

TEST(VeltoUploadEncodable, base64OfEveryLengthRemainder) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : cases) {
    VeltoData data;
    for (char c : plain) data.push_back(static_cast<std::byte>(c));
    EXPECT_EQ(placed(VeltoSensitiveData(data)).whole, "\"" + encoded + "\"") << plain;
  }
}

// An element that counts its encodings and fails on demand.
struct Probe {
  bool fails = false;
  int* calls = nullptr;
  VeltoResult<void> encodeForUpload(VeltoKeyedEncodingContainer& container, std::string_view key) const {
    ++*calls;
    return fails ? VeltoResult<void>::fromMessage("probe failed") : container.encode(key, "ok");
  }
  VeltoResult<void> encodeForUpload(VeltoUnkeyedEncodingContainer& container) const {
    ++*calls;
    return fails ? VeltoResult<void>::fromMessage("probe failed") : container.encode("ok");
  }
  VeltoResult<void> encodeForUpload(VeltoEncoder& encoder) const {
    ++*calls;
    return fails ? VeltoResult<void>::fromMessage("probe failed") : encoder.singleValueContainer().encode("ok");
  }
};

TEST(VeltoUploadEncodable, stopsAtTheFirstFailingElementAndPassesItUpUnchanged) {
  int calls = 0;
  const std::vector<Probe> probes{{false, &calls}, {true, &calls}, {false, &calls}};
  VeltoEncodingDocument document;
  auto container = document.encoder().keyedContainer();
  const auto written = encodeValueForUpload(probes, container, "list");
  ASSERT_TRUE(written.isFailure());
  EXPECT_EQ(written.error().message(), "probe failed");
  EXPECT_EQ(written.error().stackFrames().size(), 1u) << "passed up unchanged: no frame added";
  EXPECT_EQ(calls, 2) << "the element after the failure is not written";

  VeltoEncodingDocument numbers;
  auto encoder = numbers.encoder();
  const auto nan = encodeValueForUpload(std::vector<double>{1.5, std::nan(""), 3}, encoder);
  ASSERT_TRUE(nan.isFailure());
  EXPECT_EQ(nan.error().message(), "Unable to encode a non-finite floating-point value directly in JSON");
  EXPECT_EQ(numbers.jsonText(), "[1.5]") << "the container keeps what was written before the failure";

  VeltoEncodingDocument bounds;
  auto boundsEncoder = bounds.encoder();
  EXPECT_TRUE(encodeValueForUpload(VeltoDomain<double>(0, std::numeric_limits<double>::infinity()), boundsEncoder).isFailure());
}

// Whatever finite bounds a double domain has, its upload is the object of "min" and "max" in
// that order, each in its shortest round-trip form (which std::from_chars reads back exactly).
TEST(VeltoUploadEncodable, doubleDomainsUploadTheirExactBounds) {
  std::mt19937_64 random(29);
  const auto shortest = [](double value) {
    char text[64];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
  };
  for (int i = 0; i < 2000; ++i) {
    double bounds[2];
    for (double& bound : bounds) {
      do {
        bound = std::bit_cast<double>(random());
      } while (!std::isfinite(bound));
    }
    const double low = std::min(bounds[0], bounds[1]);
    const double high = std::max(bounds[0], bounds[1]);
    ASSERT_EQ(placed(VeltoDoubleDomain(bounds[0], bounds[1])).whole,
              "{\"min\":" + shortest(bounds[0]) + ",\"max\":" + shortest(bounds[1]) + "}");
    ASSERT_EQ(placed(VeltoClosedRange<double>(low, high)).whole, "{\"min\":" + shortest(low) + ",\"max\":" + shortest(high) + "}");
  }
}

// A value of random shape, uploaded through the library's conformances only, beside the JSON it
// must give.
struct Node {
  std::variant<std::string, double, std::int64_t, bool, std::uint8_t, std::vector<Node>> value;

  template <class Destination, class... Key>
  VeltoResult<void> write(Destination& destination, const Key&... key) const {
    return std::visit([&](const auto& v) { return encodeValueForUpload(v, destination, key...); }, value);
  }
  VeltoResult<void> encodeForUpload(VeltoKeyedEncodingContainer& c, std::string_view key) const { return write(c, key); }
  VeltoResult<void> encodeForUpload(VeltoUnkeyedEncodingContainer& c) const { return write(c); }
  VeltoResult<void> encodeForUpload(VeltoEncoder& e) const { return write(e); }
};

class RandomNodes {
 public:
  explicit RandomNodes(unsigned seed) : random_(seed) {}

  Node make(int depth, boost::json::value& model) {
    switch (random_() % (depth > 0 ? 6 : 5)) {
      case 0: {
        std::string text = randomText();
        model = boost::json::string(text);
        return {std::move(text)};
      }
      case 1: {
        // Never integral (an odd mantissa over a power of two: the text of 10.0 is "10", which
        // reads back as an integer) and at most 12 significant digits, which Boost.JSON's parser
        // reads back exactly.
        const double d = std::ldexp(2.0 * static_cast<double>(random_() % 5000) - 4999.0, -static_cast<int>(1 + random_() % 8));
        model = d;
        return {d};
      }
      case 2: {
        const auto i = static_cast<std::int64_t>(random_());
        model = i;
        return {i};
      }
      case 3: {
        const bool b = random_() % 2 == 0;
        model = b;
        return {decltype(Node::value)(std::in_place_type<bool>, b)};
      }
      case 4: {
        const auto b = static_cast<std::uint8_t>(random_());
        model = static_cast<std::uint64_t>(b);
        return {b};
      }
      default: {
        std::vector<Node> children;
        auto& array = model.emplace_array();
        for (auto n = random_() % 5; n > 0; --n) {
          boost::json::value child;
          children.push_back(make(depth - 1, child));
          array.push_back(std::move(child));
        }
        return {std::move(children)};
      }
    }
  }

 private:
  // Text with quotes, backslashes, control characters and multi-byte UTF-8.
  std::string randomText() {
    static const std::vector<std::string> pieces{"a", "Z", " ", "\"", "\\", "\n", "\t", std::string(1, '\x01'), "/",
                                                 "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "&", "="};
    std::string text;
    for (auto n = random_() % 8; n > 0; --n) text += pieces[random_() % pieces.size()];
    return text;
  }
  std::mt19937 random_;
};

TEST(VeltoUploadEncodable, randomNestedValuesGiveTheModelsJsonAtEveryDestination) {
  RandomNodes nodes(7);
  for (int i = 0; i < 2000; ++i) {
    boost::json::value model;
    const Node node = nodes.make(4, model);
    const Placed p = placed(node);
    ASSERT_EQ(boost::json::parse(p.whole), model) << p.whole;
    ASSERT_EQ(boost::json::parse(p.keyed), (boost::json::object{{"a", 0}, {"k", model}, {"z", 0}})) << p.keyed;
    ASSERT_EQ(boost::json::parse(p.element), (boost::json::array{0, model, 0})) << p.element;
  }
}

// The object helper writes the same entries at all three destinations.
struct Comment : VeltoUploadEncodableObject<Comment> {
  std::string text;
  std::vector<std::string> tags;
  VeltoResult<void> encodeFieldsForUpload(VeltoKeyedEncodingContainer& container) const {
    if (auto r = encodeValueForUpload(text, container, "text"); !r) return r;
    return encodeValueForUpload(tags, container, "tags");
  }
};

TEST(VeltoUploadEncodable, objectsWriteTheirFieldsInOrder) {
  Comment comment;
  comment.text = "Nice";
  comment.tags = {"a", "b"};
  EXPECT_PLACED(comment, "{\"text\":\"Nice\",\"tags\":[\"a\",\"b\"]}");
}

}  // namespace
