#include <velto/networking/VeltoSignatureParameter.hpp>

#include <boost/describe/enum.hpp>
#include <boost/uuid/string_generator.hpp>
#include <gtest/gtest.h>

#include <limits>

namespace {

enum class Sort { newestFirst, oldestFirst };
BOOST_DESCRIBE_ENUM(Sort, newestFirst, oldestFirst)
enum class Plain : unsigned char { a = 7 };

struct Point {
  int x;
  int y;
};
std::ostream& operator<<(std::ostream& out, const Point& p) { return out << '(' << p.x << ',' << p.y << ')'; }

std::string described(const VeltoSignatureParameter& parameter) { return parameter.description(); }

TEST(VeltoSignatureParameter, describesEachKindAsPlainText) {
  EXPECT_EQ(described(5), described("5"));
  EXPECT_EQ(described(std::string_view("text")), "text");
  EXPECT_EQ(described(true), "true");
  EXPECT_EQ(described('c'), "c");
  EXPECT_EQ(described(std::int8_t{-5}), "-5");
  EXPECT_EQ(described(std::uint8_t{200}), "200");
  EXPECT_EQ(described(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(described(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(described(0.1), "0.1");
  EXPECT_EQ(described(1.0), "1");
  EXPECT_EQ(described(1e20), "1e+20");
  EXPECT_EQ(described(0.1f), "0.10000000149011612") << "a float is described as the double it widens to";
  EXPECT_EQ(described(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(described(boost::uuids::string_generator()("e621e1f8-c36c-495a-93fc-0c247a3e6e5f")),
            "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ(described(Sort::oldestFirst), "oldestFirst");
  EXPECT_EQ(described(Plain::a), "7");
  EXPECT_EQ(described(Point{1, -2}), "(1,-2)");
}

}  // namespace
