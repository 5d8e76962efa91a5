// SPDX-License-Identifier: MIT
#include <zephly/platform/ns_object.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

class Lamp : public NSObject {
 public:
  void setLevel(float level) { level_ = level; }
  float level() const { return level_; }
  std::string join(const std::string& first, const std::vector<int>& rest) const {
    return first + std::to_string(rest.size());
  }
  void take(std::unique_ptr<int> owned) { taken = std::move(owned); }

  std::unique_ptr<int> taken;

 protected:
  const Zephly::SelectorTable& selectors() const override {
    static const Zephly::SelectorTable table{
        "Lamp",
        {Zephly::selector<&Lamp::setLevel>("setLevel:"), Zephly::selector<&Lamp::level>("level"),
         Zephly::selector<&Lamp::join>("join:with:"), Zephly::selector<&Lamp::take>("take:")}};
    return table;
  }

 private:
  float level_ = 0;
};

class Plain : public NSObject {};

TEST(NSObjectTest, RespondsToTheSelectorsOfItsTableOnly) {
  const Lamp lamp;
  EXPECT_TRUE(lamp.respondsToSelector("setLevel:"));
  EXPECT_TRUE(lamp.respondsToSelector("level"));
  EXPECT_FALSE(lamp.respondsToSelector("setLevel"));
  EXPECT_FALSE(lamp.respondsToSelector("LEVEL"));
  EXPECT_FALSE(lamp.respondsToSelector(""));
}

TEST(NSObjectTest, RespondsToNothingWithoutATable) {
  EXPECT_FALSE(Plain().respondsToSelector("level"));
}

TEST(NSObjectTest, PerformsWithArgumentsAndResult) {
  Lamp lamp;
  lamp.performSelector("setLevel:", 0.5f);
  EXPECT_EQ(lamp.level(), 0.5f);
  EXPECT_EQ(lamp.performSelector<float>("level"), 0.5f);
}

TEST(NSObjectTest, PassesReferenceParametersByValue) {
  Lamp lamp;
  EXPECT_EQ(
      lamp.performSelector<std::string>("join:with:", std::string("a"), std::vector<int>{1, 2}),
      "a2");
}

TEST(NSObjectTest, MovesArgumentsThatCannotBeCopied) {
  Lamp lamp;
  lamp.performSelector("take:", std::make_unique<int>(7));
  ASSERT_NE(lamp.taken, nullptr);
  EXPECT_EQ(*lamp.taken, 7);
}

TEST(NSObjectTest, DescribesItselfByClassName) { EXPECT_EQ(Lamp().description(), "<Lamp>"); }

TEST(NSObjectDeathTest, ReportsClassAndNameOfAnUnknownSelector) {
  Lamp lamp;
  EXPECT_DEATH(lamp.performSelector("dim:", 1.0f),
               "fatal error: Lamp does not respond to selector \"dim:\"");
}

TEST(NSObjectDeathTest, ReportsClassAndNameForWrongArgumentTypes) {
  Lamp lamp;
  EXPECT_DEATH(lamp.performSelector("setLevel:", 1.0), "selector \"setLevel:\" of Lamp was sent");
  EXPECT_DEATH(lamp.performSelector("setLevel:"), "selector \"setLevel:\" of Lamp was sent");
}

TEST(NSObjectDeathTest, ReportsClassAndNameForAWrongResultType) {
  Lamp lamp;
  EXPECT_DEATH(lamp.performSelector<double>("level"), "selector \"level\" of Lamp was sent");
}

}  // namespace
