#include <array>
#include <string>
#include <string_view>

#include <bench/CommandLines.h>

namespace nodo::bench {
namespace {

constexpr std::size_t shortestCommand = 75;
constexpr std::size_t commandSpread = 60;

constexpr std::array<std::string_view, 16> ordinary{
    "/usr/lib/systemd/systemd-logind",
    "/usr/lib/chromium/chromium --type=renderer --crashpad-handler-pid=2417 "
    "--enable-crash-reporter=",
    "/Applications/Safari.app/Contents/MacOS/Safari -psn_0_1",
    "/usr/share/code/code --type=utility --utility-sub-type=node.mojom.NodeService --lang=en-US",
    "node /home/anna/projects/shop/node_modules/.bin/vite --host 0.0.0.0 --port 5173",
    "/usr/bin/python3 -m pylsp --check-parent-process --log-file /home/anna/.cache/pylsp.log",
    "/usr/lib/jvm/java-17-openjdk/bin/java -Xmx4g -Dfile.encoding=UTF-8 -cp /opt/idea/lib/util.jar",
    "postgres: anna shop_development 127.0.0.1(52114) idle",
    "/bin/bash /home/anna/bin/sync-photos.sh --quiet",
    "bash -c cd /srv/build && make -j8 all",
    "sshd: anna@pts/3",
    "/usr/bin/dockerd -H fd:// --containerd=/run/containerd/containerd.sock",
    "/home/anna/.cargo/bin/rust-analyzer",
    "/usr/bin/git -C /home/anna/projects/compiler fetch --prune origin",
    "/System/Library/PrivateFrameworks/CoreSpotlight.framework/Versions/A/spotlightd --user",
    "/home/j\u00fcrgen/B\u00fccher/\u00dcbersicht/reader --library /home/j\u00fcrgen/B\u00fccher",
};

constexpr std::array<std::string_view, 7> agents{
    "claude --resume",
    "node /home/anna/.npm/lib/node_modules/@anthropic-ai/claude-code/cli.js --model opus",
    "/usr/local/bin/codex exec --skip-git-repo-check",
    "/home/anna/.codex/bin/codex resume --last",
    "/home/anna/.grok/bin/grok agent --always-approve",
    "node /home/anna/.npm/lib/node_modules/@earendil-works/pi-coding-agent/dist/cli.js",
    "pi --continue",
};

constexpr std::array<std::string_view, 12> options{
    " --config=/etc/app/config.yaml",
    " --log-level=info",
    " --user-data-dir=/home/anna/.config/Profile 1",
    " /home/anna/projects/website/src/components/Navigation.tsx",
    " --max-old-space-size=4096",
    " -Djava.io.tmpdir=/tmp",
    " --field-trial-handle=0,i,12886139817483124983,16118523184,262144",
    " --shared-files=v8_context_snapshot_data:100",
    " --time-ticks-at-unix-epoch=-1769840000",
    " -I/usr/include/x86_64-linux-gnu",
    " --pidfile=/run/app.pid",
    " --working-directory=/srv/data/2026",
};

}  // namespace

RunningProcess CommandLines::next() {
  constexpr std::size_t rowsForAnAgent = 200;
  std::string command(below(rowsForAnAgent) == 0 ? agents[below(agents.size())]
                                                 : ordinary[below(ordinary.size())]);
  const std::string executable = command.substr(0, command.find(' '));
  const std::size_t enough = shortestCommand + below(commandSpread);
  while (command.size() < enough) {
    command += options[below(options.size())];
  }
  const std::int32_t pid = pid_++;
  return {.pid = pid, .ppid = 1, .executable = executable, .command = command};
}

std::vector<RunningProcess> CommandLines::take(std::size_t count) {
  std::vector<RunningProcess> rows;
  rows.reserve(count);
  while (rows.size() < count) {
    rows.push_back(next());
  }
  return rows;
}

}  // namespace nodo::bench
