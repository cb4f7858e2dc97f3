#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tests/macos/ProtocolMethods.h>

namespace nodo {
namespace {

using test::MethodTypes;

// "C" is BOOL as this runtime has it; what Apple's compiler writes is looked at apart.
const std::vector<MethodTypes> wire{
    {"statusWithReply:", "v24@0:8@?16"},
    {"enableManualWithMinutes:withReply:", "v32@0:8q16@?24"},
    {"enableManualV2WithMinutes:extendOnly:requesterName:requesterContext:requesterEvent:"
     "withReply:",
     "v60@0:8q16C24@28@36@44@?52"},
    {"stopWithReply:", "v24@0:8@?16"},
    {"reconcileWithReply:", "v24@0:8@?16"},
    {"repairWithReply:", "v24@0:8@?16"},
};

TEST(NODOHelperXPCProtocolTest, TheWireHasItsSixRequestsInOrderAndNothingElse) {
  EXPECT_EQ(test::wireProtocolMethods(), wire);
  EXPECT_EQ(test::wireProtocolExtras(), std::vector<std::string>{});
}

TEST(NODOHelperXPCProtocolTest, TheExportedObjectAnswersAllOfThem) {
  EXPECT_TRUE(test::exportedObjectAnswers(wire));
  EXPECT_FALSE(test::exportedObjectAnswers({{"quitWithReply:", "v24@0:8@?16"}}));
}

}  // namespace
}  // namespace nodo
