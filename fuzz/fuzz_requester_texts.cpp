#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/state/NODOState.h>

#include <string>

#include <fuzz/Fuzzing.h>

namespace nodo::fuzzing {
namespace {

constexpr std::size_t longestText = 120;

void checkText(const std::string& text) {
  require(!text.empty(), "a text is absent rather than empty");
  require(isValidUTF8(text), "a text is valid UTF-8");
  require(characterCount(text) <= longestText, "a text has at most 120 characters");
  require(text.find_first_of("\n\r\t") == std::string::npos, "a text is one line without tabs");
  require(trimmed(text) == text, "a text has no white space around it");
}

void checkRequester(const ActivationRequester& requester) {
  checkText(requester.name);
  for (const auto& text : {requester.context, requester.event}) {
    if (text) {
      checkText(*text);
    }
  }
  require(requester.requested(requester.requestedAt) == requester,
          "normalising a normalised requester changes nothing");
  require(decodeJSON<ActivationRequester>(encodeJSON(requester, JSONLayout::compact)) == requester,
          "a requester reads back equal");
}

void checkShortText(const ActivationRequester& requester, std::size_t maxLength) {
  const std::string text = requester.displayText();
  const std::string shown = requester.shortDisplayText(maxLength);
  require(characterCount(shown) <= maxLength, "a short text is as short as asked for");
  require(isValidUTF8(shown), "a short text is valid UTF-8");
  if (characterCount(text) <= maxLength) {
    require(shown == text, "a text that fits is shown whole");
  } else if (maxLength < 4) {
    require(shown == firstCharacters(text, maxLength), "little room is not spent on dots");
  } else {
    require(shown.ends_with("..."), "a cut text ends in dots");
  }
}

}  // namespace
}  // namespace nodo::fuzzing

// A byte for the length of the short text, then the name, context and event between lines "%%".
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using nodo::fuzzing::twoTexts;
  std::string_view input = nodo::fuzzing::textOf(data, size);
  const std::size_t maxLength = nodo::fuzzing::takeNumber(input);
  const auto [name, rest] = twoTexts(input);
  const auto [context, event] = twoTexts(rest);
  const nodo::ActivationRequester requester(std::string(name), std::string(context),
                                            std::string(event), nodo::dateFromSeconds(1769847300));
  nodo::fuzzing::checkRequester(requester);
  nodo::fuzzing::checkShortText(requester, maxLength);
  return 0;
}
