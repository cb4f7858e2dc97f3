#include <NODOCore/base/Errors.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/sensing/AgentDetector.h>

#include <string>

#include <gtest/gtest.h>

namespace nodo {
namespace {

const AgentProcess agent = {
    .pid = 12, .ppid = 3, .executable = "/bin/pi", .command = "pi x", .kind = AgentKind::pi};

TEST(AgentProcessTest, ItsJSONHasItsKeysInTheirOrder) {
  const std::string text =
      R"({"pid":12,"ppid":3,"executable":"/bin/pi","command":"pi x","kind":"pi"})";
  EXPECT_EQ(encodeJSON(agent, JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<AgentProcess>(text), agent);
}

TEST(AgentProcessTest, WithoutAParentThereIsNoKeyForIt) {
  AgentProcess orphan = agent;
  orphan.ppid.reset();
  const std::string text = R"({"pid":12,"executable":"/bin/pi","command":"pi x","kind":"pi"})";
  EXPECT_EQ(encodeJSON(orphan, JSONLayout::compact), text);
  EXPECT_EQ(decodeJSON<AgentProcess>(text), orphan);
}

TEST(AgentProcessTest, EveryOtherKeyIsRequired) {
  for (const char* text :
       {R"({"executable":"e","command":"c","kind":"pi"})", R"({"pid":1,"command":"c","kind":"pi"})",
        R"({"pid":1,"executable":"e","kind":"pi"})", R"({"pid":1,"executable":"e","command":"c"})",
        R"({"pid":1,"executable":"e","command":"c","kind":"clippy"})",
        R"({"pid":2147483648,"executable":"e","command":"c","kind":"pi"})",
        R"({"pid":"1","executable":"e","command":"c","kind":"pi"})"}) {
    EXPECT_THROW(decodeJSON<AgentProcess>(text), DecodingError) << text;
  }
}

}  // namespace
}  // namespace nodo
