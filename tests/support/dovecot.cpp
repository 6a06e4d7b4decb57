#include "tests/support/dovecot.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <netinet/in.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <vector>

#include "base/file.h"

extern char** environ;

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kStartTime = std::chrono::seconds(10);
constexpr auto kPause = std::chrono::milliseconds(10);
constexpr int kAttempts = 3;  // another process can take a port that was free
constexpr std::int64_t kFirstMessageTime = 1700000000;

std::optional<fs::path> program(const std::string& name) {
  for (const char* folder : {"/usr/sbin", "/usr/local/sbin", "/usr/bin", "/usr/local/bin"}) {
    const fs::path path = fs::path(folder) / name;
    if (::access(path.c_str(), X_OK) == 0) return path;
  }
  return std::nullopt;
}

/// Whom the server runs as: this user, or under root, whom Dovecot serves no mail, nobody.
struct Runner {
  std::string user, group;
  uid_t uid;
  gid_t gid;
};

std::optional<Runner> runner() {
  const struct passwd* user = ::geteuid() == 0 ? ::getpwnam("nobody") : ::getpwuid(::geteuid());
  if (user == nullptr) return std::nullopt;
  const struct group* group = ::getgrgid(user->pw_gid);
  if (group == nullptr) return std::nullopt;
  return Runner{user->pw_name, group->gr_name, user->pw_uid, user->pw_gid};
}

/// Gives a file or a whole folder to the server.
void handOver(const fs::path& path) {
  if (::geteuid() != 0) return;
  const auto owner = runner();
  const auto give = [&](const fs::path& entry) {
    if (::lchown(entry.c_str(), owner->uid, owner->gid) != 0) {
      throw std::runtime_error("cannot give " + entry.native() + " to " + owner->user);
    }
  };
  give(path);
  if (!fs::is_directory(path)) return;
  for (const auto& entry : fs::recursive_directory_iterator(path)) give(entry.path());
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

/// Two different ports that are free now.
std::pair<std::uint16_t, std::uint16_t> freePorts() {
  std::vector<FileHandle> sockets;
  std::vector<std::uint16_t> ports;
  for (int i = 0; i < 2; ++i) {
    sockets.emplace_back(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(sockets.back().descriptor(), generic, size) != 0 ||
        ::getsockname(sockets.back().descriptor(), generic, &size) != 0) {
      throw std::runtime_error("no free port");
    }
    ports.push_back(ntohs(address.sin_port));
  }
  return {ports[0], ports[1]};
}

/// Whether something on the port says a first word before `deadline`.
bool greets(std::uint16_t port, SteadyClock::time_point deadline) {
  const FileHandle socket(::socket(AF_INET, SOCK_STREAM, 0));
  const sockaddr_in address = loopback(port);
  if (::connect(socket.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0) {
    return false;
  }
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(  //
      deadline - SteadyClock::now());
  pollfd waiting{socket.descriptor(), POLLIN, 0};
  char byte = 0;
  return ::poll(&waiting, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0))) == 1 &&
         ::recv(socket.descriptor(), &byte, 1, 0) == 1;
}

}  // namespace

std::optional<std::string> DovecotServer::unavailable() {
  for (const char* name : {"dovecot", "setpriv"}) {
    if (!program(name)) return std::string(name) + " is not installed";
  }
  if (!runner()) return "the user this runs as has no name";
  return std::nullopt;
}

DovecotServer::DovecotServer(Options options) : options_(std::move(options)) {
  if (const auto reason = unavailable()) throw std::runtime_error(*reason);
  user_ = options_.users.begin()->first;
  certificate_ = writeTestCertificate(folder_.path(), options_.hostName, options_.validity);
  for (const char* name : {"run", "state", "home"}) fs::create_directory(folder_ / name);
  std::ofstream users(folder_ / "users");
  for (const auto& [name, password] : options_.users) {
    users << name << ":{PLAIN}" << password << "::::::\n";
  }
  users.close();
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::tie(plainPort_, tlsPort_) = freePorts();
    writeConfiguration();
    handOver(folder_.path());
    if (start()) return;
    stop();
  }
  throw std::runtime_error("Dovecot does not start: " + log());
}

void DovecotServer::writeConfiguration() const {
  const Runner owner = *runner();
  std::string specialUse;
  for (const auto& [name, use] : options_.specialUse) {
    specialUse += fmt::format("  mailbox \"{}\" {{\n    special_use = {}\n  }}\n", name, use);
  }
  std::ofstream(folder_ / "dovecot.conf") << fmt::format(
      R"(base_dir = {folder}/run
state_dir = {folder}/state
log_path = {folder}/log
protocols = imap
listen = 127.0.0.1
default_internal_user = {user}
default_internal_group = {group}
default_login_user = {user}
first_valid_uid = 1
first_valid_gid = 1
mail_location = maildir:~/Maildir:UTF-8
mail_fsync = never
auth_failure_delay = 0
disable_plaintext_auth = no
ssl = {ssl}
ssl_cert = <{folder}/cert.pem
ssl_key = <{folder}/key.pem
namespace inbox {{
  inbox = yes
  separator = {delimiter}
{specialUse}}}
passdb {{
  driver = passwd-file
  args = {folder}/users
}}
userdb {{
  driver = static
  args = uid={user} gid={group} home={folder}/home/%u allow_all_users=yes
}}
service imap-login {{
  chroot =
  inet_listener imap {{
    port = {plainPort}
  }}
  inet_listener imaps {{
    port = {tlsPort}
    ssl = yes
  }}
}}
service anvil {{
  chroot =
  unix_listener anvil-auth-penalty {{
    mode = 0
  }}
}}
service stats {{
  chroot =
}}
)",
      fmt::arg("folder", folder_.path().native()), fmt::arg("user", owner.user),
      fmt::arg("group", owner.group), fmt::arg("ssl", options_.tls ? "yes" : "no"),
      fmt::arg("delimiter", options_.delimiter), fmt::arg("specialUse", specialUse),
      fmt::arg("plainPort", plainPort_), fmt::arg("tlsPort", options_.tls ? tlsPort_ : 0));
}

bool DovecotServer::start() {
  // The kernel ends the server when the test program ends, however that happens.
  std::vector<std::string> words = {*program("setpriv"), "--pdeathsig", "TERM"};
  if (::geteuid() == 0) {
    const Runner owner = *runner();
    words.insert(words.end(), {"--reuid", owner.user, "--regid", owner.group, "--clear-groups"});
  }
  words.insert(words.end(), {*program("dovecot"), "-F", "-c", folder_ / "dovecot.conf"});
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  ::posix_spawnattr_setpgroup(&attributes, 0);
  const int error =
      ::posix_spawn(&process_, arguments[0], nullptr, &attributes, arguments.data(), environ);
  ::posix_spawnattr_destroy(&attributes);
  if (error != 0) throw std::runtime_error("setpriv cannot be started");

  const auto deadline = SteadyClock::now() + kStartTime;
  while (SteadyClock::now() < deadline) {
    if (greets(plainPort_, deadline)) return true;
    int status = 0;
    if (::waitpid(process_, &status, WNOHANG) == process_) {
      process_ = -1;
      return false;
    }
    std::this_thread::sleep_for(kPause);
  }
  return false;
}

void DovecotServer::stop() {
  if (process_ < 0) return;
  // All its processes are of its group. What they leave behind goes with the folder.
  ::kill(-process_, SIGKILL);
  int status = 0;
  ::waitpid(process_, &status, 0);
  process_ = -1;
}

std::string DovecotServer::log() const {
  return readFileIfPossible(folder_ / "log").value_or("(no log)");
}

fs::path DovecotServer::maildir(const std::string& folder) const {
  fs::path path = folder_ / "home" / user_ / "Maildir";
  if (folder == "INBOX") return path;
  std::string name = folder;
  std::replace(name.begin(), name.end(), options_.delimiter, '.');
  return path / ("." + name);
}

fs::path DovecotServer::find(const std::string& folder, const std::string& message) const {
  for (const char* part : {"cur", "new"}) {
    for (const auto& entry : fs::directory_iterator(maildir(folder) / part)) {
      if (entry.path().filename().native().starts_with(message)) return entry.path();
    }
  }
  throw std::runtime_error(folder + " holds no message " + message);
}

void DovecotServer::createFolder(const std::string& folder) {
  const fs::path path = maildir(folder);
  for (const char* part : {"tmp", "cur", "new"}) fs::create_directories(path / part);
  if (folder != "INBOX") std::ofstream(path / "maildirfolder");
  handOver(folder_ / "home" / user_);
}

void DovecotServer::removeFolder(const std::string& folder) { fs::remove_all(maildir(folder)); }

std::string DovecotServer::deliver(const std::string& folder, BytesView message,
                                   const std::string& flags, std::optional<Date> internalDate) {
  const fs::path path = maildir(folder);
  if (!fs::is_directory(path / "cur")) createFolder(folder);
  // Dovecot numbers new messages in the order of the times in their names.
  const std::string name = std::to_string(kFirstMessageTime + delivered_++) + ".test";
  std::ofstream(path / "tmp" / name, std::ios::binary) << message;
  handOver(path / "tmp" / name);
  if (internalDate) {
    struct timespec times[2] = {};
    times[0].tv_sec = times[1].tv_sec = static_cast<time_t>(internalDate->seconds);
    ::utimensat(AT_FDCWD, (path / "tmp" / name).c_str(), times, 0);
  }
  const fs::path target =
      flags.empty() ? path / "new" / name : path / "cur" / (name + ":2," + flags);
  fs::rename(path / "tmp" / name, target);
  return name;
}

void DovecotServer::remove(const std::string& folder, const std::string& message) {
  fs::remove(find(folder, message));
}

void DovecotServer::move(const std::string& message, const std::string& from,
                         const std::string& to) {
  const fs::path source = find(from, message);
  if (!fs::is_directory(maildir(to) / "cur")) createFolder(to);
  fs::rename(source, maildir(to) / source.parent_path().filename() / source.filename());
}

std::string DovecotServer::flags(const std::string& folder, const std::string& message) const {
  const std::string name = find(folder, message).filename();
  const std::size_t info = name.find(":2,");
  return info == std::string::npos ? "" : name.substr(info + 3);
}

void DovecotServer::changeUidValidity(const std::string& folder) {
  std::vector<fs::path> known;
  for (const auto& entry : fs::directory_iterator(maildir(folder))) {
    const std::string name = entry.path().filename();
    if (name == "dovecot-uidlist" || name.starts_with("dovecot.index")) {
      known.push_back(entry.path());
    }
  }
  for (const fs::path& path : known) fs::remove(path);
}

}  // namespace ambervane
