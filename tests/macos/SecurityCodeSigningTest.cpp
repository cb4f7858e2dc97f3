#include <NODOCore/helper/NODOXPCClientAuthentication.h>
#include <platform/macos/SecurityCodeSigning.h>
#include <testing/FakeCodeSigning.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <tests/macos/FakeMac.h>
#include <tests/macos/FakeSecurity.h>

namespace nodo {
namespace {

using Authentication = NODOXPCClientAuthentication;
using Result = Authentication::ValidationResult;
using test::FakeMac;
using test::FakePeer;
using test::FakeSecurity;

class SecurityCodeSigningTest : public ::testing::Test {
 protected:
  FakeSecurity& security = FakeSecurity::instance();
  AuditToken token;

  SecurityCodeSigningTest() {
    FakeMac::instance().reset();
    security.reset();
    for (std::size_t index = 0; index < token.size(); ++index) {
      token[index] = static_cast<std::byte>(index * 9);
    }
  }

  /// The verdict, once it is certain that every object of the framework was released.
  Result verdict() const {
    const Result result = Authentication::validate(FakePeer(token), SecurityCodeSigning());
    EXPECT_EQ(FakeMac::instance().openHandles(), std::multiset<std::string>{});
    return result;
  }
};

TEST_F(SecurityCodeSigningTest, TheFrameworkIsAskedForTheCallersTokenAndTheRequirement) {
  EXPECT_EQ(verdict(), Result{Result::Accepted{}});
  EXPECT_EQ(security.askedToken, token);
  EXPECT_EQ(security.askedRequirement, Authentication::codeSigningRequirement());
  EXPECT_TRUE(security.checkedBoth);
}

TEST_F(SecurityCodeSigningTest, EachStatusReachesTheVerdict) {
  security.validityStatus = -67050;
  EXPECT_EQ(verdict(), Result{Result::RejectedRequirement{-67050}});
  security.givesError = true;
  EXPECT_EQ(verdict(), Result{Result::RejectedRequirement{-67050}});
  security.requirementStatus = -67030;
  EXPECT_EQ(verdict(), Result{Result::RejectedAPIFailure{-67030}});
  security.guestStatus = 100003;
  EXPECT_EQ(verdict(), Result{Result::RejectedAPIFailure{100003}});
  security.givesGuest = false;
  security.guestStatus = -67062;
  EXPECT_EQ(verdict(), Result{Result::RejectedUnsigned{}});
}

TEST_F(SecurityCodeSigningTest, SuccessWithoutAnObjectIsAFailure) {
  security.givesRequirement = false;
  EXPECT_EQ(verdict(), Result{Result::RejectedAPIFailure{0}});
  security.givesGuest = false;
  EXPECT_EQ(verdict(), Result{Result::RejectedAPIFailure{0}});
}

TEST_F(SecurityCodeSigningTest, ThisProcessIsJudgedByItsOwnCode) {
  EXPECT_EQ(Authentication::validateSelf(SecurityCodeSigning()), Result{Result::Accepted{}});
  EXPECT_EQ(security.askedToken, std::nullopt);
  EXPECT_EQ(security.askedRequirement, Authentication::codeSigningRequirement());
  EXPECT_TRUE(security.checkedBoth);
  security.validityStatus = -67050;
  EXPECT_EQ(Authentication::validateSelf(SecurityCodeSigning()),
            Result{Result::RejectedRequirement{-67050}});
  EXPECT_EQ(FakeMac::instance().openHandles(), std::multiset<std::string>{});
}

}  // namespace
}  // namespace nodo
