#include <NODOCore/helper/NODOXPCClientAuthentication.h>
#include <testing/FakeCodeSigning.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

namespace nodo {
namespace {

using Authentication = NODOXPCClientAuthentication;
using Result = Authentication::ValidationResult;
using test::FakeCodeSigning;
using test::FakePeer;

constexpr std::int32_t unsignedCode = -67062;
constexpr std::int32_t requirementFailed = -67050;
constexpr std::int32_t smallest = -2147483647 - 1;

const std::string requirement =
    R"((anchor apple generic and certificate leaf[subject.OU] = "Q7K2M9X4TZ") and )"
    R"((identifier "com.quintavel.nodo" or identifier "com.quintavel.nodo.nodoctl"))";

AuditToken tokenOf(int number) {
  AuditToken token{};
  token.front() = static_cast<std::byte>(number);
  token.back() = static_cast<std::byte>(number + 1);
  return token;
}

class NODOXPCClientAuthenticationTest : public ::testing::Test {
 protected:
  FakeCodeSigning services;
  FakePeer peer{tokenOf(1)};

  NODOXPCClientAuthenticationTest() { services.validity[tokenOf(1)] = 0; }

  /// The verdict, once it is certain that nothing of the services was kept.
  Result verdict(int objectsMade) {
    const Result result = Authentication::validate(peer, services);
    EXPECT_EQ(services.objectsMade(), objectsMade);
    EXPECT_EQ(services.objectsAlive(), 0);
    return result;
  }
};

TEST_F(NODOXPCClientAuthenticationTest, OurOwnProgramsAreAccepted) {
  EXPECT_EQ(verdict(2), Result{Result::Accepted{}});
  EXPECT_EQ(services.checkedRequirement(), requirement);
}

TEST_F(NODOXPCClientAuthenticationTest, EachCallerIsJudgedByItsOwnToken) {
  services.validity[tokenOf(2)] = requirementFailed;
  EXPECT_TRUE(Authentication::validate(peer, services).isAccepted());
  EXPECT_FALSE(Authentication::validate(FakePeer(tokenOf(2)), services).isAccepted());
  EXPECT_FALSE(Authentication::validate(FakePeer(tokenOf(3)), services).isAccepted());
  EXPECT_EQ(services.objectsAlive(), 0);
}

TEST_F(NODOXPCClientAuthenticationTest, ACallerWithoutAnAuditTokenIsUnsupported) {
  peer.token.reset();
  const Result result = verdict(0);
  EXPECT_EQ(result, Result{Result::RejectedUnsupportedClient{}});
  EXPECT_EQ(Authentication::rejectionLogMessage(result),
            "nodod: rejected XPC client (audit token unavailable)");
}

TEST_F(NODOXPCClientAuthenticationTest, AnUnsignedCallerMayShowWhenItIsLookedUp) {
  services.guestBehaviour = {.status = unsignedCode, .givesObject = false};
  EXPECT_EQ(verdict(0), Result{Result::RejectedUnsigned{}});
}

TEST_F(NODOXPCClientAuthenticationTest, AnUnsignedCallerMayShowWhenItIsChecked) {
  services.validity[tokenOf(1)] = unsignedCode;
  EXPECT_EQ(verdict(2), Result{Result::RejectedUnsigned{}});
}

TEST_F(NODOXPCClientAuthenticationTest, AFailedLookUpIsAFailureOfTheServices) {
  const struct {
    FakeCodeSigning::Behaviour behaviour;
    std::int32_t expected;
  } cases[] = {
      {{.status = 100001, .givesObject = false}, 100001},
      {{.status = -67065, .givesObject = true}, -67065},
      {{.status = 0, .givesObject = false}, 0},
  };

  for (const auto& each : cases) {
    services.guestBehaviour = each.behaviour;
    EXPECT_EQ(Authentication::validate(peer, services),
              Result{Result::RejectedAPIFailure{each.expected}});
    EXPECT_EQ(services.objectsAlive(), 0);
  }
}

TEST_F(NODOXPCClientAuthenticationTest, AnUnsignedStatusWinsOverAnObject) {
  services.guestBehaviour = {.status = unsignedCode, .givesObject = true};
  EXPECT_EQ(verdict(1), Result{Result::RejectedUnsigned{}});
}

TEST_F(NODOXPCClientAuthenticationTest, ARequirementThatCannotBeMadeIsAFailureOfTheServices) {
  const struct {
    FakeCodeSigning::Behaviour behaviour;
    std::int32_t expected;
  } cases[] = {
      {{.status = -67051, .givesObject = false}, -67051},
      {{.status = -67051, .givesObject = true}, -67051},
      {{.status = 0, .givesObject = false}, 0},
      // No word on the caller, whose signature was not looked at yet.
      {{.status = unsignedCode, .givesObject = false}, unsignedCode},
  };

  for (const auto& each : cases) {
    services.requirementBehaviour = each.behaviour;
    EXPECT_EQ(Authentication::validate(peer, services),
              Result{Result::RejectedAPIFailure{each.expected}});
    EXPECT_EQ(services.objectsAlive(), 0);
  }
}

TEST_F(NODOXPCClientAuthenticationTest, ACallerOfAnotherTeamFailsTheRequirement) {
  for (const std::int32_t status : {requirementFailed, -67061, 1, smallest}) {
    services.validity[tokenOf(1)] = status;
    EXPECT_EQ(Authentication::validate(peer, services),
              Result{Result::RejectedRequirement{status}});
    EXPECT_EQ(services.objectsAlive(), 0);
  }
}

TEST_F(NODOXPCClientAuthenticationTest, AVerdictThatNobodyGaveIsNoAcceptance) {
  EXPECT_FALSE(Result{}.isAccepted());
}

TEST_F(NODOXPCClientAuthenticationTest, VerdictsAreEqualWhenCaseAndStatusAre) {
  EXPECT_EQ(Result{Result::RejectedRequirement{1}}, Result{Result::RejectedRequirement{1}});
  EXPECT_NE(Result{Result::RejectedRequirement{1}}, Result{Result::RejectedRequirement{2}});
  EXPECT_NE(Result{Result::RejectedRequirement{1}}, Result{Result::RejectedAPIFailure{1}});
  EXPECT_NE(Result{Result::RejectedUnsigned{}}, Result{Result::Accepted{}});
}

TEST_F(NODOXPCClientAuthenticationTest, TheRequirementNamesTheTeamAndBothPrograms) {
  EXPECT_EQ(Authentication::codeSigningRequirement(), requirement);
}

/// What `logRejection` writes to a stream that is as unbuffered as standard error, by single
/// writes.
std::vector<std::string> writesFor(const Result& result) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  std::FILE* stream = fdopen(ends[0], "w");
  std::setvbuf(stream, nullptr, _IONBF, 0);
  Authentication::logRejection(result, stream);
  std::vector<std::string> writes;
  char buffer[4096];
  for (;;) {
    const ssize_t size = recv(ends[1], buffer, sizeof buffer, MSG_DONTWAIT);
    if (size < 0) {
      break;
    }
    writes.emplace_back(buffer, static_cast<std::size_t>(size));
  }
  std::fclose(stream);
  close(ends[1]);
  return writes;
}

const struct {
  Result result;
  std::string line;
} refusals[] = {
    {{Result::RejectedRequirement{-67050}},
     "nodod: rejected XPC client (code signing status -67050); requirement: " + requirement},
    {{Result::RejectedRequirement{smallest}},
     "nodod: rejected XPC client (code signing status -2147483648); requirement: " + requirement},
    {{Result::RejectedAPIFailure{0}}, "nodod: rejected XPC client (SecCode API status 0)"},
    {{Result::RejectedAPIFailure{100003}},
     "nodod: rejected XPC client (SecCode API status 100003)"},
    {{Result::RejectedUnsigned{}}, "nodod: rejected unsigned XPC client"},
    {{Result::RejectedUnsupportedClient{}}, "nodod: rejected XPC client (audit token unavailable)"},
};

TEST_F(NODOXPCClientAuthenticationTest, ARefusalIsExactlyOneLineInTheLog) {
  for (const auto& each : refusals) {
    EXPECT_EQ(Authentication::rejectionLogMessage(each.result), each.line);
    EXPECT_EQ(writesFor(each.result), std::vector<std::string>{each.line + '\n'});
  }
}

TEST_F(NODOXPCClientAuthenticationTest, AnAcceptedCallerLeavesNoTrace) {
  EXPECT_EQ(Authentication::rejectionLogMessage({Result::Accepted{}}), std::nullopt);
  EXPECT_EQ(writesFor({Result::Accepted{}}), std::vector<std::string>{});
}

TEST_F(NODOXPCClientAuthenticationTest, AProgramCanTellWhetherItWouldBeServed) {
  services.ownToken = tokenOf(1);
  EXPECT_EQ(Authentication::validateSelf(services), Result{Result::Accepted{}});
  EXPECT_EQ(services.checkedRequirement(), requirement);
  services.validity[tokenOf(1)] = requirementFailed;
  EXPECT_EQ(Authentication::validateSelf(services),
            Result{Result::RejectedRequirement{requirementFailed}});
  services.validity[tokenOf(1)] = unsignedCode;
  EXPECT_EQ(Authentication::validateSelf(services), Result{Result::RejectedUnsigned{}});
}

TEST_F(NODOXPCClientAuthenticationTest, WithoutAStreamNothingIsLogged) {
  ::testing::internal::CaptureStderr();
  for (const auto& each : refusals) {
    Authentication::logRejection(each.result, nullptr);
  }
  Authentication::logRejection({Result::Accepted{}}, nullptr);
  XPCRejectionLog(nullptr).add({Result::RejectedUnsigned{}}, {});
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

class XPCRejectionLogTest : public ::testing::Test {
 protected:
  XPCRejectionLog::Clock::time_point now;

  XPCRejectionLogTest() : stream_(open_memstream(&text_, &size_)), log_(stream_) {}

  void TearDown() override {
    std::fclose(stream_);
    std::free(text_);
  }

  void add(const Result& result, int times = 1) {
    for (; times > 0; --times) {
      log_.add(result, now);
    }
  }

  std::string takeText() {
    std::fflush(stream_);
    std::string all(text_, size_);
    std::string taken = all.substr(taken_);
    taken_ = all.size();
    return taken;
  }

 private:
  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::size_t taken_ = 0;
  std::FILE* stream_;
  XPCRejectionLog log_;
};

TEST_F(XPCRejectionLogTest, EachKindOfVerdictIsToldOnceAMinute) {
  add({Result::RejectedUnsigned{}}, 1000);
  add({Result::RejectedUnsupportedClient{}}, 1000);
  EXPECT_EQ(takeText(),
            "nodod: rejected unsigned XPC client\n"
            "nodod: rejected XPC client (audit token unavailable)\n");
  now += XPCRejectionLog::silence - std::chrono::nanoseconds(1);
  add({Result::RejectedUnsigned{}});
  EXPECT_EQ(takeText(), "");
}

TEST_F(XPCRejectionLogTest, WhatWasNotToldIsCounted) {
  add({Result::RejectedUnsigned{}}, 1001);
  takeText();
  now += XPCRejectionLog::silence;
  add({Result::RejectedUnsigned{}}, 3);
  EXPECT_EQ(takeText(),
            "nodod: rejected 1000 more XPC clients for this reason:\n"
            "nodod: rejected unsigned XPC client\n");
  now += XPCRejectionLog::silence;
  add({Result::RejectedUnsigned{}});
  EXPECT_EQ(takeText(),
            "nodod: rejected 2 more XPC clients for this reason:\n"
            "nodod: rejected unsigned XPC client\n");
}

TEST_F(XPCRejectionLogTest, AcceptedClientsAreNoNews) {
  add({Result::Accepted{}});
  EXPECT_EQ(takeText(), "");
}

}  // namespace
}  // namespace nodo
