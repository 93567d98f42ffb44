// Alerts on Linux: a separate process shows a GTK message dialog, so that the alert neither
// blocks the launcher nor ends with it, and holds none of its standard streams.
#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/linux/gtk_loader.h"
#include "platform/linux/notice_process.h"
#include "platform/notice.h"
#include "platform/platform.h"

extern char** environ;

namespace bwk::platform {

namespace {

// The environment of this process with the notice added (any inherited value replaced).
std::vector<std::string> noticeEnvironment(const NoticeText& notice) {
  std::string prefix = std::string(kNoticeVariable) + "=";
  std::vector<std::string> env;
  for (char** e = environ; e && *e; ++e)
    if (std::strncmp(*e, prefix.c_str(), prefix.size()) != 0) env.emplace_back(*e);
  env.push_back(prefix + encodeNotice(notice));
  return env;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> p;
  for (std::string& s : strings) p.push_back(s.data());
  p.push_back(nullptr);
  return p;
}

}  // namespace

std::string noticeProcessName(const NoticeText& notice) {
  if (notice.header && !notice.header->empty()) return *notice.header;
  std::string executable = executablePath().value_or("exe");
  return executable.substr(executable.rfind('/') + 1);
}

std::string noticeThreadName(const std::string& name) {
  size_t length = std::min<size_t>(name.size(), 15);
  while (length < name.size() && length > 0 && (static_cast<unsigned char>(name[length]) & 0xc0) == 0x80) --length;
  return name.substr(0, length);
}

pid_t startNoticeProcess(const std::string& executable, const NoticeText& notice) {
  std::vector<std::string> env = noticeEnvironment(notice);
  // The process list shows the application's name rather than the executable's path.
  std::vector<std::string> args{noticeProcessName(notice)};
  std::vector<char*> envp = pointers(env), argv = pointers(args);

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  for (int fd = 0; fd <= 2; ++fd)
    posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", fd == 0 ? O_RDONLY : O_WRONLY, 0);
  // Pipes and files of the launcher that lack close-on-exec must not stay open in the notice.
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  // A session of its own: a signal to the launcher's process group leaves the notice alone.
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);

  pid_t pid = -1;
  int error = posix_spawn(&pid, executable.c_str(), &actions, &attributes, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) return -1;
  // Reaped here if it ends first; otherwise this process ends first and the notice stays.
  std::thread([pid] {
    while (::waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
    }
  }).detach();
  return pid;
}

bool displayNotice(const std::optional<std::string>& header, const std::string& message) {
  // /proc/self/exe reaches this executable even if its file was replaced meanwhile.
  return startNoticeProcess("/proc/self/exe", NoticeText{header, message}) > 0;
}

bool runNoticeIfRequested() {
  const char* value = std::getenv(kNoticeVariable);
  if (!value) return false;
  std::optional<NoticeText> notice = decodeNotice(value);
  // Nothing started from here (the dialog's helpers) must see the request again.
  ::unsetenv(kNoticeVariable);
  if (!notice) return true;
  // The process name that ps and top show, as argv[0] already does for ps -f.
  ::prctl(PR_SET_NAME, noticeThreadName(noticeProcessName(*notice)).c_str(), 0, 0, 0);
  std::string error;
  const gtk::Api* gtk = gtk::loadAndInit(false, &error);
  if (!gtk) return true;  // no way to show it; the launcher wrote the message on standard error
  // Without a header the message is the primary text, as the alert shows a message alone.
  const std::string& primary = notice->header ? *notice->header : notice->message;
  void* dialog = gtk->gtk_message_dialog_new(nullptr, 0, gtk::kMessageError, gtk::kButtonsOk, "%s", primary.c_str());
  if (notice->header) {
    gtk->gtk_message_dialog_format_secondary_text(dialog, "%s", notice->message.c_str());
    gtk->gtk_window_set_title(dialog, notice->header->c_str());
  }
  gtk->gtk_window_set_position(dialog, gtk::kWinPosCenter);
  gtk->gtk_window_set_keep_above(dialog, 1);
  gtk->gtk_dialog_run(dialog);
  gtk->gtk_widget_destroy(dialog);
  return true;
}

}  // namespace bwk::platform
