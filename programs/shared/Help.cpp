#include <NODOCore/base/Text.h>
#include <programs/shared/Help.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <vector>

#include <CLI/CLI.hpp>

#include <sys/ioctl.h>
#include <termios.h>

namespace nodo {
namespace {

constexpr std::size_t nameIndent = 2;

// Lays out text in lines of a width.
class Page {
 public:
  explicit Page(int columns) : columns_(static_cast<std::size_t>(columns)) {}

  // Each line of `text` as a paragraph, of which all lines but the first are indented.
  void addText(const std::string& text, std::size_t indent = 0) {
    std::istringstream paragraphs(text);
    for (std::string paragraph; std::getline(paragraphs, paragraph);) {
      addWords(paragraph, indent);
      endLine();
    }
  }

  void addHeading(const std::string& heading) { text_ += "\n" + heading + ":\n"; }

  // A name and what it means: side by side where there is room, else one below the other.
  void addRow(const std::string& name, const std::string& meaning) {
    const bool isWide = columns_ >= narrowColumns;
    const std::size_t indent = isWide ? meaningIndent : narrowIndent;
    moveTo(nameIndent);
    addWords(name, narrowIndent);
    if (!isWide || column_ + 2 > indent) {
      endLine();
    }
    moveTo(indent);
    addWords(meaning, indent);
    endLine();
  }

  std::string text() && { return std::move(text_); }

 private:
  static constexpr std::size_t narrowColumns = 64;  // below that a second column is too narrow
  static constexpr std::size_t meaningIndent = 30;
  static constexpr std::size_t narrowIndent = 6;

  void addWords(const std::string& words, std::size_t indent) {
    std::istringstream stream(words);
    std::string gap;
    for (std::string word; stream >> word; gap = " ") {
      if (!gap.empty() && column_ + gap.size() + word.size() > columns_) {
        endLine();
        moveTo(indent);
        gap.clear();
      }
      text_ += gap + word;
      column_ += gap.size() + word.size();
    }
  }

  void moveTo(std::size_t column) {
    text_.append(column - column_, ' ');
    column_ = column;
  }

  void endLine() {
    text_ += '\n';
    column_ = 0;
  }

  std::size_t columns_;
  std::size_t column_ = 0;
  std::string text_;
};

std::vector<const CLI::App*> subcommands(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App*) { return true; });
}

// What is typed for it; for an argument that is what its value is called.
std::string optionName(const CLI::Option& option) {
  const std::string value = option.get_type_size() > 0 ? option.get_type_name() : "";
  const std::string name = option.get_positional() ? "" : option.get_name(false, true);
  return name + (name.empty() || value.empty() ? "" : " ") + value;
}

std::string usage(const CLI::App& command, const std::string& name) {
  std::string usage = "Usage: " + name + " [OPTIONS]";
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) {
      const std::string argument = optionName(*option);
      usage += option->get_required() ? " " + argument : " [" + argument + "]";
    }
  }
  return usage + (subcommands(command).empty() ? "" : " SUBCOMMAND");
}

void addOptions(Page& page, const CLI::App& command, bool positional, const std::string& heading) {
  const auto options = command.get_options(
      [positional](const CLI::Option* each) { return each->get_positional() == positional; });
  if (!options.empty()) {
    page.addHeading(heading);
  }
  for (const CLI::Option* option : options) {
    page.addRow(optionName(*option),
                option->get_description() + (option->get_required() ? " (required)" : ""));
  }
}

}  // namespace

std::optional<int> columnsOfTerminal(int descriptor) {
  winsize told{};
  if (::ioctl(descriptor, TIOCGWINSZ, &told) != 0 || told.ws_col == 0) {
    return std::nullopt;
  }
  return told.ws_col;
}

int columnsOfLine(const Environment& environment, std::optional<int> terminal) {
  const auto text = nonEmptyValue(environment, "COLUMNS");
  const auto asked = text ? integerFromText<std::int32_t>(*text) : std::nullopt;
  return asked && *asked > 0 ? *asked : terminal.value_or(usualColumns);
}

int helpColumns(const Environment& environment, std::optional<int> terminal) {
  constexpr int fewest = 40;
  constexpr int most = 100;
  return std::clamp(columnsOfLine(environment, terminal), fewest, most);
}

std::string helpText(const CLI::App& command, const std::string& name, int columns) {
  Page page(columns);
  page.addText(command.get_description());
  page.addText(usage(command, name), nameIndent);
  addOptions(page, command, true, "Arguments");
  addOptions(page, command, false, "Options");
  const auto commands = subcommands(command);
  if (!commands.empty()) {
    page.addHeading("Subcommands");
  }
  for (const CLI::App* each : commands) {
    page.addRow(each->get_name(), each->get_description());
  }
  if (!command.get_footer().empty()) {
    page.addText("\n" + command.get_footer());
  }
  return std::move(page).text();
}

std::variant<std::monostate, HelpText, UsageError> parseArguments(
    CLI::App& app, const std::vector<std::string>& arguments, int columns) {
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // as the parser wants
  try {
    app.parse(reversed);
    return {};
  } catch (const CLI::CallForHelp&) {
    return HelpText{helpText(app, app.get_name(), columns)};
  } catch (const CLI::CallForVersion& version) {
    return HelpText{std::string(version.what()) + "\n"};
  } catch (const CLI::ParseError& error) {
    return UsageError{.message = escapedForDisplay(error.what()),
                      .hint = "Try '" + app.get_name() + " --help' for more information."};
  }
}

}  // namespace nodo
