#include <NODOCore/base/JSONCoding.h>
#include <programs/nodo-menu/Questions.h>
#include <programs/nodoctl/commands/Commands.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace nodo::menu {
namespace {

using nodoctl::Answer;

// Does what each kind of wish asks for, and notes in the reply what became of it.
class Fulfilling {
 public:
  Fulfilling(const nodoctl::DaemonOptions& daemon, const nodoctl::ToolContext& context,
             Reply& reply)
      : daemon_(daemon), context_(context), reply_(reply) {}

  void operator()(const Look& look) const {
    if (look.listens) {
      reply_.news = context_.listenForChanges(daemon_.bus, Seconds(daemon_.timeout));
    }
  }

  void operator()(const KeepAwake& wish) const {
    nodoctl::ManualCommand command{.daemon = daemon_, .requester = "nodo-menu"};
    if (const auto* minutes = std::get_if<std::int64_t>(&wish.until)) {
      command.minutes = *minutes;
    } else {
      command.until = std::get<ClockTime>(wish.until);
    }
    note(nodoctl::perform(command, context_));
  }

  void operator()(const Stop& /*wish*/) const {
    note(nodoctl::perform(nodoctl::StopCommand{.daemon = daemon_}, context_));
  }

  void operator()(const Pause& /*wish*/) const {
    note(nodoctl::perform(nodoctl::PauseCommand{.daemon = daemon_}, context_));
  }

  void operator()(const Resume& /*wish*/) const {
    note(nodoctl::perform(nodoctl::ResumeCommand(), context_));
  }

  void operator()(const SetUpHooks& /*wish*/) const {
    const nodoctl::HooksInstallCommand command{.hooks = {}, .json = true};
    const Answer answer = nodoctl::perform(command, context_);
    reply_.reports = decodeJSON<std::vector<AgentHookInstallReport>>(answer.output);
    // Its failures are in the reports.
  }

 private:
  void note(Answer answer) const { reply_.failure = std::move(answer.failure); }

  const nodoctl::DaemonOptions& daemon_;
  const nodoctl::ToolContext& context_;
  Reply& reply_;
};

}  // namespace

Reply serve(const Wish& wish, const nodoctl::DaemonOptions& daemon,
            const nodoctl::ToolContext& context) {
  Reply reply{.wish = wish};
  try {
    std::visit(Fulfilling(daemon, context, reply), wish);
  } catch (const std::exception& error) {
    reply.failure = error.what();
  }
  try {
    const auto* look = std::get_if<Look>(&wish);
    reply.facts = nodoctl::gatherHealth(daemon, context,
                                        look != nullptr && look->findsReasons
                                            ? nodoctl::HealthDepth::findings
                                            : nodoctl::HealthDepth::picture);
  } catch (const std::exception& error) {
    if (!reply.failure) {
      reply.failure = error.what();
    }
  }
  return reply;
}

Questions::Questions(Serve serve, Wake wake)
    : serve_(std::move(serve)), wake_(std::move(wake)), thread_([this] { work(); }) {}

Questions::~Questions() {
  end();
  thread_.join();
}

void Questions::end() {
  const std::lock_guard guard(lock_);
  isOver_ = true;
  changed_.notify_one();
}

std::uint64_t Questions::ask(const Wish& wish) {
  const std::lock_guard guard(lock_);
  const auto* look = std::get_if<Look>(&wish);
  if (look != nullptr && !waiting_.empty()) {
    // What is asked last sees the same.
    if (auto* last = std::get_if<Look>(&waiting_.back().second)) {
      last->listens = last->listens || look->listens;
      last->findsReasons = last->findsReasons || look->findsReasons;
      return waiting_.back().first;
    }
  }
  waiting_.emplace_back(++lastNumber_, wish);
  changed_.notify_one();
  return lastNumber_;
}

std::vector<Reply> Questions::take() {
  const std::lock_guard guard(lock_);
  return std::exchange(replies_, {});
}

void Questions::work() {
  std::unique_lock guard(lock_);
  while (true) {
    changed_.wait(guard, [this] { return isOver_ || !waiting_.empty(); });
    if (isOver_) {
      return;
    }
    const Question question = std::move(waiting_.front());
    waiting_.pop_front();
    guard.unlock();
    Reply reply = serve_(question.second);
    reply.number = question.first;
    guard.lock();
    replies_.push_back(std::move(reply));
    guard.unlock();
    wake_();
    guard.lock();
  }
}

}  // namespace nodo::menu
