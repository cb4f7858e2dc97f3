#include <platform/linux/BoundedRows.h>
#include <platform/linux/ProcTexts.h>

#include <algorithm>
#include <string>
#include <utility>

namespace nodo {
namespace {

std::size_t bytesOf(const RunningProcess& row) {
  return row.executable.size() + row.command.size();
}

}  // namespace

void BoundedRows::add(RunningProcess row) {
  cut(row);
  bytes_ += bytesOf(row);
  rows_.push_back(std::move(row));
  while (bytes_ > mostBytes) {
    cutLongest();
  }
}

std::vector<RunningProcess> BoundedRows::takeSorted() {
  std::sort(rows_.begin(), rows_.end(),
            [](const auto& left, const auto& right) { return left.pid < right.pid; });
  return std::move(rows_);
}

void BoundedRows::cut(RunningProcess& row) const {
  for (std::string* text : {&row.executable, &row.command}) {
    if (text->size() > longest_) {
      *text = std::string(firstBytes(*text, longest_));  // anew: one made shorter keeps its memory
    }
  }
}

void BoundedRows::cutLongest() {
  longest_ /= 2;
  bytes_ = 0;
  for (RunningProcess& row : rows_) {
    cut(row);
    bytes_ += bytesOf(row);
  }
}

}  // namespace nodo
