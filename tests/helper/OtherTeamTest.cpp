#include <NODOCore/helper/NODOXPCClientAuthentication.h>

#include <gtest/gtest.h>

namespace nodo {
namespace {

TEST(OtherTeamTest, TheDaemonOfATeamsOwnBuildServesThatTeam) {
  EXPECT_EQ(NODOXPCClientAuthentication::codeSigningRequirement(),
            R"((anchor apple generic and certificate leaf[subject.OU] = "ABCDE12345") and )"
            R"((identifier "com.quintavel.nodo" or identifier "com.quintavel.nodo.nodoctl"))");
}

}  // namespace
}  // namespace nodo
