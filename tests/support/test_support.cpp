#include "test_support.h"

#include "plist_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace bwk::test {

namespace stdfs = std::filesystem;

TempDir::TempDir() {
  char pattern[] = "/tmp/bwk-test-XXXXXX";
  if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ec;
  // Tests may leave read-only directories behind; make them writable first.
  for (auto it = stdfs::recursive_directory_iterator(path_, stdfs::directory_options::skip_permission_denied, ec);
       !ec && it != stdfs::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_directory(ec) && !it->is_symlink(ec)) stdfs::permissions(it->path(), stdfs::perms::owner_all, stdfs::perm_options::add, ec);
  }
  stdfs::permissions(path_, stdfs::perms::owner_all, stdfs::perm_options::add, ec);
  stdfs::remove_all(path_, ec);
}

void writeFile(const std::string& path, const std::string& contents) {
  stdfs::create_directories(stdfs::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string toXmlPlist(const PlistValue& value) { return bundle::xmlPropertyList(value); }

void writePlist(const std::string& path, const PlistValue& value) { writeFile(path, toXmlPlist(value)); }

RunResult run(const std::vector<std::string>& argv, const std::vector<std::string>& env,
              const std::string& workingDirectory) {
  std::vector<std::string> environment;
  for (char** e = environ; *e; ++e) environment.emplace_back(*e);
  for (const std::string& entry : env) {
    std::string name = entry.substr(0, entry.find('='));
    std::erase_if(environment, [&](const std::string& e) { return e.compare(0, name.size() + 1, name + "=") == 0; });
    if (entry.find('=') != std::string::npos) environment.push_back(entry);
  }
  std::vector<char*> cargv, cenv;
  for (const auto& a : argv) cargv.push_back(const_cast<char*>(a.c_str()));
  for (const auto& e : environment) cenv.push_back(const_cast<char*>(e.c_str()));
  cargv.push_back(nullptr);
  cenv.push_back(nullptr);

  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (!workingDirectory.empty()) posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.c_str());
  pid_t pid;
  int rc = posix_spawn(&pid, cargv[0], &actions, nullptr, cargv.data(), cenv.data());
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(err[1]);
  RunResult result;
  if (rc != 0) result.err = std::string("spawn failed: ") + std::strerror(rc);
  // Both pipes are read to their end, whichever fills first.
  struct pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  char buffer[8192];
  while (fds[0].fd >= 0 || fds[1].fd >= 0) {
    if (poll(fds, 2, -1) < 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !fds[i].revents) continue;
      ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) (i == 0 ? result.out : result.err).append(buffer, static_cast<size_t>(n));
      else close(std::exchange(fds[i].fd, -1));
    }
  }
  int status = 0;
  if (rc == 0 && waitpid(pid, &status, 0) == pid) result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

RunResult shell(const std::string& command) { return run({"/bin/sh", "-c", command}); }

void makeFakeRuntime(const std::string& dir, const std::string& version, const std::string& layout) {
  std::string home = layout == "bundle" ? dir + "/Contents/Home" : dir;
  writeFile(home + "/release", "JAVA_VERSION=\"" + version + "\"\n");
  stdfs::create_directories(home + "/lib");
  stdfs::copy_file(BWK_FAKE_JLI, home + "/lib/libjli.so", stdfs::copy_options::overwrite_existing);
  if (layout == "bundle") {
    PlistDict javaVM{{"JVMVersion", version}};
    writePlist(dir + "/Contents/Info.plist", PlistValue(PlistDict{{"JavaVM", PlistValue(javaVM)},
                                                                  {"CFBundleIdentifier", "test.runtime"}}));
  }
}

std::string makeBundle(const std::string& parent, const std::string& name, const PlistValue& info) {
  std::string bundle = parent + "/" + name + ".app";
  stdfs::create_directories(bundle + "/Contents/MacOS");
  stdfs::copy_file(BWK_LAUNCHER, bundle + "/Contents/MacOS/" + name, stdfs::copy_options::overwrite_existing);
  writePlist(bundle + "/Contents/Info.plist", info);
  return bundle;
}

}  // namespace bwk::test
