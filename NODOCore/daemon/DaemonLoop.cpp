#include <NODOCore/daemon/DaemonLoop.h>

#include <algorithm>
#include <utility>

namespace nodo {

std::string listed(const std::vector<News>& news) {
  std::string text;
  for (const News each : news) {
    text += (text.empty() ? "" : ", ") + std::string(rawValue(each));
  }
  return text;
}

bool NewsBurst::add(News news) {
  if (std::find(news_.begin(), news_.end(), news) == news_.end()) {
    news_.push_back(news);
    return news_.size() == 1;
  }
  return false;
}

std::vector<News> NewsBurst::take() {
  return std::exchange(news_, {});
}

std::optional<Seconds> AnnouncementPace::delay(Seconds now) {
  if (std::exchange(isDue_, true)) {
    return std::nullopt;
  }
  return std::max(earliest_ - now, Seconds(0));
}

void AnnouncementPace::made(Seconds now) {
  isDue_ = false;
  earliest_ = now + interval;
}

}  // namespace nodo
