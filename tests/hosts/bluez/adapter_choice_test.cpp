// SPDX-License-Identifier: MIT
// The choice of the machine's adapter, and when it changes.

#include <hosts/bluez/adapter_choice.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using Zephly::bluez::AdapterChoice;
using Zephly::bluez::canBeCentral;
using Zephly::bluez::canBePeripheral;
using Zephly::bluez::Dictionary;
using Zephly::bluez::ObjectTree;
using Zephly::bluez::Strings;

Dictionary adapter(const std::string& address, bool powered, bool able = true) {
  Dictionary interfaces;
  interfaces["org.bluez.Adapter1"] = Dictionary{{"Address", address}, {"Powered", powered}};
  if (able) {
    interfaces["org.bluez.GattManager1"] = Dictionary();
    interfaces["org.bluez.LEAdvertisingManager1"] = Dictionary();
  }
  return interfaces;
}

ObjectTree treeOf(const Dictionary& objects) {
  ObjectTree tree;
  EXPECT_TRUE(tree.replace({objects}));
  return tree;
}

constexpr const char* address0 = "00:00:00:00:00:0A";
constexpr const char* address1 = "00:00:00:00:00:0B";

TEST(AdapterChoiceTest, ChoosesTheFirstAdapterThatIsOn) {
  const auto tree = treeOf({{"/org/bluez/hci0", adapter(address0, false)},
                            {"/org/bluez/hci10", adapter(address1, true)},
                            {"/org/bluez/hci2", adapter(address1, true)}});
  EXPECT_EQ(AdapterChoice("", canBePeripheral).choose(tree), "/org/bluez/hci2");
}

TEST(AdapterChoiceTest, PrefersAnAdapterThatIsOffToNone) {
  const auto tree = treeOf({{"/org/bluez/hci0", adapter(address0, false)}});
  EXPECT_EQ(AdapterChoice("", canBePeripheral).choose(tree), "/org/bluez/hci0");
  EXPECT_EQ(AdapterChoice("", canBePeripheral).choose(ObjectTree()), "");
}

TEST(AdapterChoiceTest, IgnoresAdaptersWithoutBothManagers) {
  const auto tree = treeOf({{"/org/bluez/hci0", adapter(address0, true, false)},
                            {"/org/bluez/hci1", adapter(address1, true)}});
  AdapterChoice any("", canBePeripheral);
  EXPECT_EQ(any.choose(tree), "/org/bluez/hci1");
  EXPECT_FALSE(any.onlyUnable(tree));
  AdapterChoice named("hci0", canBePeripheral);
  EXPECT_EQ(named.choose(tree), "");
  EXPECT_TRUE(named.onlyUnable(tree));
  EXPECT_FALSE(AdapterChoice("hci7", canBePeripheral).onlyUnable(tree));
}

TEST(AdapterChoiceTest, KeepsItsChoiceWhileItIsOn) {
  AdapterChoice choice("", canBePeripheral);
  EXPECT_EQ(choice.choose(treeOf({{"/org/bluez/hci1", adapter(address1, true)}})),
            "/org/bluez/hci1");
  EXPECT_EQ(choice.choose(treeOf({{"/org/bluez/hci0", adapter(address0, true)},
                                  {"/org/bluez/hci1", adapter(address1, true)}})),
            "/org/bluez/hci1");
  EXPECT_EQ(choice.choose(treeOf({{"/org/bluez/hci0", adapter(address0, true)},
                                  {"/org/bluez/hci1", adapter(address1, false)}})),
            "/org/bluez/hci0");
}

TEST(AdapterChoiceTest, FindsAnAddressAtAnyIndexIgnoringCase) {
  AdapterChoice choice("00:00:00:00:00:0b", canBePeripheral);
  EXPECT_EQ(choice.choose(treeOf({{"/org/bluez/hci0", adapter(address0, true)},
                                  {"/org/bluez/hci3", adapter(address1, false)}})),
            "/org/bluez/hci3");
}

TEST(AdapterChoiceTest, AnIndexFollowsItsAdapterToANewIndex) {
  AdapterChoice choice("hci0", canBePeripheral);
  EXPECT_EQ(choice.choose(treeOf({{"/org/bluez/hci0", adapter(address0, true)}})),
            "/org/bluez/hci0");
  EXPECT_EQ(choice.choose(treeOf({{"/org/bluez/hci0", adapter(address1, true)}})), "");
  EXPECT_EQ(choice.choose(treeOf({{"/org/bluez/hci0", adapter(address1, true)},
                                  {"/org/bluez/hci1", adapter(address0, true)}})),
            "/org/bluez/hci1");
}

TEST(AdapterChoiceTest, AcceptsAnAdapterOfUnknownRoles) {
  const auto tree = treeOf({{"/org/bluez/hci0", adapter(address0, true, false)}});
  EXPECT_EQ(AdapterChoice("", canBeCentral).choose(tree), "/org/bluez/hci0");
}

TEST(AdapterChoiceTest, IgnoresAnAdapterWithoutTheCentralRole) {
  const auto withRole = [](const std::string& address, const char* role) {
    return Dictionary{
        {"org.bluez.Adapter1",
         Dictionary{{"Address", address}, {"Powered", true}, {"Roles", Strings{role}}}}};
  };
  const auto tree = treeOf({{"/org/bluez/hci0", withRole(address0, "peripheral")},
                            {"/org/bluez/hci1", withRole(address1, "central")}});
  AdapterChoice any("", canBeCentral);
  EXPECT_EQ(any.choose(tree), "/org/bluez/hci1");
  AdapterChoice named("hci0", canBeCentral);
  EXPECT_EQ(named.choose(tree), "");
  EXPECT_TRUE(named.onlyUnable(tree));
  const auto both = treeOf({{"/org/bluez/hci0", withRole(address0, "central-peripheral")}});
  EXPECT_EQ(named.choose(both), "/org/bluez/hci0");
}

}  // namespace
