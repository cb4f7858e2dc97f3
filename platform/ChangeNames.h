#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace nodo {

/// The names of what changed about the machine since it was last reported. Not thread-safe.
class ChangeNames {
 public:
  bool isEmpty() const { return names_.empty(); }

  /// A name that is there already is not added again.
  void add(const std::string& name) {
    if (std::find(names_.begin(), names_.end(), name) == names_.end()) {
      names_.push_back(name);
    }
  }

  /// All of them in the order in which they came, such as "lid, power supply"; none are left.
  std::string take() {
    std::string text;
    for (const std::string& name : std::exchange(names_, {})) {
      text += (text.empty() ? "" : ", ") + name;
    }
    return text;
  }

 private:
  std::vector<std::string> names_;
};

}  // namespace nodo
