#include "hbbtv_ryn/request_registry.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct RequestRegistryTest : testing::Test {
  ~RequestRegistryTest() override { deleteAllRequest(); }
  int owner = 0, other_owner = 0, x = 0, y = 0, z = 0;
};

TEST_F(RequestRegistryTest, EveryPartOfTheKeyCounts) {
  const std::string with_nul("a\0b", 3);
  ASSERT_EQ(0, addRequest(true, with_nul, &owner, &x));
  EXPECT_EQ(&x, findRequest(true, with_nul, &owner));
  EXPECT_EQ(nullptr, findRequest(false, with_nul, &owner));
  EXPECT_EQ(nullptr, findRequest(true, with_nul, &other_owner));
  EXPECT_EQ(nullptr, findRequest(true, with_nul, nullptr));
  for (const auto& name :
       {std::string("a"), std::string("a\0c", 3), std::string("a\0b\0", 4), std::string()}) {
    EXPECT_EQ(nullptr, findRequest(true, name, &owner)) << name;
    EXPECT_EQ(-1, deleteRequest(true, name, &owner)) << name;
  }
  ASSERT_EQ(0, addRequest(false, "", nullptr, &y));
  EXPECT_EQ(&y, findRequest(false, "", nullptr));
}

TEST_F(RequestRegistryTest, AKeyMayHoldSeveralValuesAndYieldsTheOldest) {
  addRequest(true, "n", &owner, &x);
  addRequest(true, "n", &owner, &x);
  EXPECT_EQ(1, getRequestSize());
  for (int i = 0; i < 2; ++i) addRequest(true, "n", &owner, &y);  // only the oldest keeps its like out
  addRequest(true, "z", &owner, &z);
  EXPECT_EQ(4, getRequestSize());
  EXPECT_EQ(&x, findRequest(true, "n", &owner));
  EXPECT_EQ(0, deleteRequest(true, "n", &owner));
  EXPECT_EQ(&y, findRequest(true, "n", &owner));
  EXPECT_EQ(&y, getRequestFirstItem());
  EXPECT_EQ(3, getRequestSize());
}

TEST_F(RequestRegistryTest, AnEmptyRegistryAnswersEveryQuestionAndStaysEmptyWithoutAValue) {
  addRequest(true, "n", &owner, &x);
  EXPECT_EQ(0, deleteAllRequest());
  EXPECT_EQ(nullptr, getRequestFirstItem());
  EXPECT_EQ(nullptr, findRequest(true, "n", &owner));
  EXPECT_EQ(-1, deleteRequest(true, "n", &owner));
  EXPECT_EQ(0, addRequest(false, "n", &owner, nullptr));
  EXPECT_EQ(0, getRequestSize());
}

}  // namespace
