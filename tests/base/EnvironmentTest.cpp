#include <NODOCore/base/Environment.h>

#include <gtest/gtest.h>

#include <stdlib.h>

namespace nodo {
namespace {

TEST(EnvironmentTest, HoldsTheProcessesVariables) {
  ASSERT_EQ(::setenv("NODO_TEST_VARIABLE", "a=b=c", 1), 0);
  ASSERT_EQ(::setenv("NODO_TEST_EMPTY", "", 1), 0);
  const Environment environment = processEnvironment();
  ::unsetenv("NODO_TEST_VARIABLE");
  ::unsetenv("NODO_TEST_EMPTY");
  EXPECT_EQ(environment.at("NODO_TEST_VARIABLE"), "a=b=c");
  EXPECT_EQ(environment.at("NODO_TEST_EMPTY"), "");
  EXPECT_FALSE(processEnvironment().contains("NODO_TEST_VARIABLE"));
}

TEST(EnvironmentTest, AnEmptyVariableIsAsGoodAsNone) {
  const Environment environment{{"SET", " "}, {"EMPTY", ""}};
  EXPECT_EQ(nonEmptyValue(environment, "SET"), " ");
  EXPECT_EQ(nonEmptyValue(environment, "EMPTY"), std::nullopt);
  EXPECT_EQ(nonEmptyValue(environment, "MISSING"), std::nullopt);
}

}  // namespace
}  // namespace nodo
