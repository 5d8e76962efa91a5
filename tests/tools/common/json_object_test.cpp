// SPDX-License-Identifier: MIT
#include <tools/common/json_object.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace Zephly::tools {
namespace {

TEST(JsonObjectTest, HasItsMembersInOrder) {
  EXPECT_EQ(JsonObject().text(), "{}");
  EXPECT_EQ(JsonObject().add("b", 1).add("a", true).raw("c", "[1]").text(),
            R"({"b":1,"a":true,"c":[1]})");
}

TEST(JsonObjectTest, NestsObjectsAndArrays) {
  const JsonObject inner = JsonObject().add("t", 1.5);
  EXPECT_EQ(JsonObject().add("list", JsonArray().add(inner).add(inner)).text(),
            R"({"list":[{"t":1.5},{"t":1.5}]})");
  EXPECT_EQ(JsonObject().add("none", JsonArray()).add("empty", JsonObject()).text(),
            R"({"none":[],"empty":{}})");
}

TEST(JsonObjectTest, NumbersAreExactAndShort) {
  EXPECT_EQ(JsonArray()
                .add(0.1)
                .add(30.0)
                .add(1e300)
                .add(0.1F)
                .add(std::numeric_limits<std::uint64_t>::max())
                .add(-1)
                .text(),
            "[0.1,30.0,1e+300,0.10000000149011612,18446744073709551615,-1]");
  EXPECT_EQ(JsonArray()
                .add(std::numeric_limits<double>::quiet_NaN())
                .add(std::numeric_limits<double>::infinity())
                .text(),
            "[null,null]");
}

TEST(JsonObjectTest, NoValueIsNull) {
  EXPECT_EQ(JsonObject().add("a", std::optional<double>()).add("b", std::optional(2.5)).text(),
            R"({"a":null,"b":2.5})");
  EXPECT_EQ(JsonObject().add("a", std::optional<JsonObject>()).text(), R"({"a":null})");
}

TEST(JsonObjectTest, TextIsEscapedAndBecomesUtf8) {
  EXPECT_EQ(JsonObject().add("a", "quote \" and\nline").text(), R"({"a":"quote \" and\nline"})");
  EXPECT_EQ(JsonObject().add("a", std::string("\xFF")).text(), "{\"a\":\"\uFFFD\"}");
  EXPECT_EQ(JsonObject().add("a", std::optional<std::string>("b")).text(), R"({"a":"b"})");
}

}  // namespace
}  // namespace Zephly::tools
