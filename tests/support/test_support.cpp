#include "test_support.h"

#include "plist_writer.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

extern char** environ;

namespace bwk::test {

namespace stdfs = std::filesystem;

// Standard input closed, as a supervisor may start a program: open() then hands out descriptor 0.
[[maybe_unused]] const bool standardInputClosed = ::close(STDIN_FILENO) == 0;

TempDir::TempDir() {
  char pattern[] = "/tmp/bwk-test-XXXXXX";
  if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ec;
  // Tests may leave read-only directories behind; make them writable first.
  for (auto it = stdfs::recursive_directory_iterator(path_, stdfs::directory_options::skip_permission_denied, ec);
       !ec && it != stdfs::recursive_directory_iterator(); it.increment(ec))
    if (it->is_directory(ec) && !it->is_symlink(ec))
      stdfs::permissions(it->path(), stdfs::perms::owner_all, stdfs::perm_options::add, ec);
  stdfs::permissions(path_, stdfs::perms::owner_all, stdfs::perm_options::add, ec);
  stdfs::remove_all(path_, ec);
}

ScopedEnvironment::ScopedEnvironment(std::initializer_list<std::pair<std::string, std::optional<std::string>>> values) {
  for (const auto& [name, value] : values) set(name, value);
}

ScopedEnvironment::~ScopedEnvironment() {
  // Back to front, so that a variable changed twice ends with its first value.
  for (auto it = saved_.rbegin(); it != saved_.rend(); ++it)
    it->second ? ::setenv(it->first.c_str(), it->second->c_str(), 1) : ::unsetenv(it->first.c_str());
}

void ScopedEnvironment::set(const std::string& name, const std::optional<std::string>& value) {
  const char* old = std::getenv(name.c_str());
  saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
  value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
}

void writeFile(const std::string& path, const std::string& contents) {
  stdfs::create_directories(stdfs::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string toXmlPlist(const PlistValue& value) { return bundle::xmlPropertyList(value); }

void writePlist(const std::string& path, const PlistValue& value) { writeFile(path, toXmlPlist(value)); }

std::vector<std::string> environmentWith(const std::vector<std::string>& env) {
  std::vector<std::string> environment;
  for (char** e = environ; *e; ++e) environment.emplace_back(*e);
  for (const std::string& entry : env) {
    std::string name = entry.substr(0, entry.find('='));
    std::erase_if(environment, [&](const std::string& e) { return e.compare(0, name.size() + 1, name + "=") == 0; });
    if (entry.find('=') != std::string::npos) environment.push_back(entry);
  }
  return environment;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
void sleepMs(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

Background::Background(std::vector<std::string> argv, const std::vector<std::string>& env,
                       const std::string& workingDirectory) {
  std::vector<std::string> environment = environmentWith(env);
  std::vector<char*> a, e;
  for (std::string& s : argv) a.push_back(s.data());
  for (std::string& s : environment) e.push_back(s.data());
  a.push_back(nullptr);
  e.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addclose(&actions, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out_.c_str(), O_WRONLY | O_CREAT, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err_.c_str(), O_WRONLY | O_CREAT, 0600);
  if (!workingDirectory.empty()) posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.c_str());
  start_ = std::chrono::steady_clock::now();
  if (int rc = posix_spawn(&pid_, a[0], &actions, nullptr, a.data(), e.data()); rc != 0) {
    pid_ = -1;
    writeFile(err_, std::string("spawn failed: ") + std::strerror(rc));
  }
  posix_spawn_file_actions_destroy(&actions);
}

Background::~Background() {
  if (pid_ <= 0 || reaped_) return;
  kill(pid_, SIGTERM);
  for (int i = 0; i < 200 && waitpid(pid_, nullptr, WNOHANG) == 0; ++i) sleepMs(10);
  if (kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
}

std::string Background::line(double seconds) {
  std::string text;
  while ((text = readFile(out_)).find('\n') == std::string::npos && secondsSince(start_) < seconds) sleepMs(10);
  return text.substr(0, text.find('\n'));
}

RunResult Background::finish(double seconds) {
  RunResult r;
  int raw = 0;
  pid_t done = 0;
  if (pid_ > 0 && seconds <= 0)
    done = waitpid(pid_, &raw, 0);
  else if (pid_ > 0)
    while ((done = waitpid(pid_, &raw, WNOHANG)) == 0 && secondsSince(start_) < seconds) sleepMs(10);
  reaped_ = pid_ > 0 && done == pid_;
  if (reaped_) r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  r.out = readFile(out_);
  r.err = readFile(err_);
  return r;
}

RunResult run(const std::vector<std::string>& argv, const std::vector<std::string>& env,
              const std::string& workingDirectory) {
  return Background(argv, env, workingDirectory).finish(0);
}

RunResult shell(const std::string& command) { return run({"/bin/sh", "-c", command}); }

void makeFakeRuntime(const std::string& dir, const std::string& version, const std::string& layout) {
  std::string home = layout == "bundle" ? dir + "/Contents/Home" : dir;
  writeFile(home + "/release", "JAVA_VERSION=\"" + version + "\"\n");
  stdfs::create_directories(home + "/lib");
  stdfs::copy_file(BWK_FAKE_JLI, home + "/lib/libjli.so", stdfs::copy_options::overwrite_existing);
  if (layout == "bundle")
    writePlist(dir + "/Contents/Info.plist",
               PlistDict{{"JavaVM", PlistDict{{"JVMVersion", version}}}, {"CFBundleIdentifier", "test.runtime"}});
}

std::string makeBundle(const std::string& parent, const std::string& name, const PlistValue& info) {
  std::string bundle = parent + "/" + name + ".app";
  stdfs::create_directories(bundle + "/Contents/MacOS");
  stdfs::copy_file(BWK_LAUNCHER, bundle + "/Contents/MacOS/" + name, stdfs::copy_options::overwrite_existing);
  writePlist(bundle + "/Contents/Info.plist", info);
  return bundle;
}

}  // namespace bwk::test
