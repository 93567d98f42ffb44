#pragma once
// Starting the process that shows a notice; displayNotice uses the running executable.
#include <sys/types.h>
#include <string>

#include "platform/linux/notice_text.h"

namespace bwk::platform {

// Starts `executable` in a session of its own, standard streams on /dev/null and no other
// descriptor inherited, with the notice in its environment. Does not wait: a thread reaps
// the process if it ends while this one still runs. The process id, or -1 when it could not
// be started.
pid_t startNoticeProcess(const std::string& executable, const NoticeText& notice);
// The name the notice's process goes by: the header (the application's name), else the
// launcher's file name.
std::string noticeProcessName(const NoticeText& notice);
// `name` cut to the 15 bytes a thread name holds, not inside a UTF-8 character.
std::string noticeThreadName(const std::string& name);

}  // namespace bwk::platform
