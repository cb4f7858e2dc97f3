#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/state/ActivationRequester.h>

#include <string_view>

namespace nodo {
namespace {

constexpr std::size_t longestText = 120;
constexpr std::string_view ellipsis = "...";

template <class Fields, class Requester>
void describe(Fields& fields, Requester& requester) {
  fields.required("name", requester.name);
  fields.optional("context", requester.context);
  fields.optional("event", requester.event);
  fields.required("requestedAt", requester.requestedAt);
}

// `text` when it has at most `maxLength` characters, else its beginning and "...", `maxLength`
// characters in all.
std::string shortened(std::string_view text, std::size_t maxLength) {
  if (firstCharacters(text, maxLength).size() == text.size()) {
    return std::string(text);
  }
  return std::string(firstCharacters(text, maxLength - ellipsis.size())) + std::string(ellipsis);
}

std::optional<std::string> normalised(const std::optional<std::string>& given) {
  if (!given) {
    return std::nullopt;
  }
  std::string text = repairedUTF8(*given);
  for (char& character : text) {
    if (character == '\n' || character == '\r' || character == '\t') {
      character = ' ';
    }
  }
  const std::string_view inner = trimmed(text);
  if (inner.empty()) {
    return std::nullopt;
  }
  return shortened(inner, longestText);
}

}  // namespace

ActivationRequester::ActivationRequester(const std::string& name,
                                         const std::optional<std::string>& context,
                                         const std::optional<std::string>& event, Date requestedAt)
    : name(normalised(name).value_or("Unknown")),
      context(normalised(context)),
      event(normalised(event)),
      requestedAt(requestedAt) {}

ActivationRequester ActivationRequester::requested(Date at) const {
  return {name, context, event, at};
}

std::string ActivationRequester::displayText() const {
  return context ? name + " - " + *context : name;
}

std::string ActivationRequester::shortDisplayText(std::size_t maxLength) const {
  const std::string text = displayText();
  if (maxLength <= ellipsis.size()) {
    return std::string(firstCharacters(text, maxLength));
  }
  return shortened(text, maxLength);
}

JSONValue encode(const ActivationRequester& requester) {
  ObjectEncoder fields;
  describe(fields, requester);
  return fields.finish();
}

void decode(const JSONReader& from, ActivationRequester& requester) {
  ObjectDecoder fields(from);
  describe(fields, requester);
}

}  // namespace nodo
