#include <platform/linux/CallerPolicy.h>

#include <ostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {

void PrintTo(const CallerVerdict& verdict, std::ostream* out) {
  *out << static_cast<int>(verdict.kind) << " \"" << verdict.reason << "\"";
}

namespace {

using ::testing::HasSubstr;

constexpr std::uint32_t root = 0;
constexpr std::uint32_t person = 1000;
constexpr std::uint32_t stranger = 1001;

const CallerPolicy onSystemBus{.ownUser = root, .isOwnUsersBus = true, .hasAuthority = true};
const CallerPolicy onOwnBus{.ownUser = person, .isOwnUsersBus = true, .hasAuthority = false};
const CallerPolicy onAnothersBus{.ownUser = person, .isOwnUsersBus = false, .hasAuthority = true};
const CallerPolicy withoutPolkit{.ownUser = person, .isOwnUsersBus = false, .hasAuthority = false};

const CallerVerdict serve{.kind = CallerVerdict::Kind::serve, .reason = ""};
const CallerVerdict ask{.kind = CallerVerdict::Kind::askAuthority, .reason = ""};

TEST(CallerPolicyTest, AnyoneMayLook) {
  for (const CallerPolicy& policy : {onSystemBus, onOwnBus, onAnothersBus, withoutPolkit}) {
    EXPECT_EQ(policy.judge(RequestKind::look, root), serve);
    EXPECT_EQ(policy.judge(RequestKind::look, stranger), serve);
    EXPECT_EQ(policy.judge(RequestKind::look, std::nullopt), serve);
  }
}

TEST(CallerPolicyTest, RootMayChangeAnything) {
  for (const CallerPolicy& policy : {onSystemBus, onOwnBus, onAnothersBus, withoutPolkit}) {
    EXPECT_EQ(policy.judge(RequestKind::change, root), serve);
  }
}

TEST(CallerPolicyTest, TheDaemonsUserMayChangeThingsOnItsOwnBusOnly) {
  EXPECT_EQ(onOwnBus.judge(RequestKind::change, person), serve);
  EXPECT_EQ(onAnothersBus.judge(RequestKind::change, person), ask);
  EXPECT_EQ(withoutPolkit.judge(RequestKind::change, person).kind, CallerVerdict::Kind::refuse);
}

TEST(CallerPolicyTest, PolkitIsAskedAboutOthers) {
  EXPECT_EQ(onSystemBus.judge(RequestKind::change, person), ask);
  EXPECT_EQ(onSystemBus.judge(RequestKind::change, UINT32_MAX), ask);
}

TEST(CallerPolicyTest, WithoutPolkitOthersAreRefused) {
  const CallerVerdict verdict = onOwnBus.judge(RequestKind::change, stranger);
  EXPECT_EQ(verdict.kind, CallerVerdict::Kind::refuse);
  EXPECT_EQ(verdict.reason, "on this bus only its own user and root may do this");
}

TEST(CallerPolicyTest, ACallerOfUnknownUserIsRefusedWhoeverElseMayAsk) {
  for (const CallerPolicy& policy : {onSystemBus, onOwnBus, onAnothersBus, withoutPolkit}) {
    const CallerVerdict verdict = policy.judge(RequestKind::change, std::nullopt);
    EXPECT_EQ(verdict.kind, CallerVerdict::Kind::refuse);
    EXPECT_EQ(verdict.reason, "the bus does not tell whose request this is");
  }
}

TEST(CallerPolicyTest, OnlyAClearYesOfPolkitsServes) {
  EXPECT_EQ(CallerPolicy::judge(AuthorityAnswer{.isAuthorized = true}), serve);
  for (const AuthorityAnswer& answer :
       {AuthorityAnswer{}, AuthorityAnswer{.needsAuthentication = true},
        AuthorityAnswer{.failure = "gone"},
        AuthorityAnswer{.isAuthorized = true, .failure = "odd"}}) {
    EXPECT_EQ(CallerPolicy::judge(answer).kind, CallerVerdict::Kind::refuse);
  }
}

TEST(CallerPolicyTest, ARefusalSaysWhatPolkitSaid) {
  EXPECT_EQ(CallerPolicy::judge(AuthorityAnswer{}).reason,
            "polkit does not allow com.quintavel.nodo.keep-awake");
  EXPECT_THAT(CallerPolicy::judge(AuthorityAnswer{.needsAuthentication = true}).reason,
              HasSubstr("password for com.quintavel.nodo.keep-awake"));
  EXPECT_EQ(CallerPolicy::judge(AuthorityAnswer{.failure = "no such name"}).reason,
            "polkit cannot be asked: no such name");
}

TEST(CallerPolicyTest, ARefusalsLineNamesTheCaller) {
  EXPECT_EQ(rejectionLogMessage(":1.42", 1000, "because"),
            "nodod: rejected D-Bus caller :1.42 (uid 1000): because");
  EXPECT_EQ(rejectionLogMessage(":1.42", std::nullopt, "because"),
            "nodod: rejected D-Bus caller :1.42 (uid unknown): because");
}

}  // namespace
}  // namespace nodo
