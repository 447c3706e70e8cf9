#include "engine/support/process_users.h"

#include <fcntl.h>
#include <linux/kcmp.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <thread>
#include <utility>

#include "engine/support/open_entry.h"
#include "engine/support/proc_file.h"

namespace VrelDR {

namespace {

using Kind = TargetUser::Kind;

// The descriptor of another process as one of our own: to look at a file through /proc asks the
// file system that it is on, and this asks nobody.
Fd Borrow(pid_t pid, int number) {
  const Fd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  return process ? Fd(static_cast<int>(syscall(SYS_pidfd_getfd, process.Get(), number, 0))) : Fd();
}

// The letter of a task's state; 0 when it has gone.
char StateOf(const std::string& proc) {
  const std::string stat = ReadSystemLine(proc + "/stat");
  const std::size_t name = stat.rfind(')');
  return name == std::string::npos || name + 2 >= stat.size() ? '\0' : stat[name + 2];
}

// Whether a task waits in the kernel, perhaps with the lock of its mappings. Who only waits for a
// disk, in one of the calls that never have that lock, does not count.
bool IsStuck(const std::string& proc) {
  if (StateOf(proc) != 'D') return false;
  constexpr long kHarmless[] = {SYS_fsync,  SYS_fdatasync, SYS_sync,      SYS_syncfs,
                                SYS_openat, SYS_openat2,   SYS_renameat2, SYS_unlinkat,
                                SYS_ioctl,  SYS_ftruncate, SYS_fallocate, SYS_close};
  // "-1 ..." for one that is in no call, as at a page that is not in memory.
  const long call = std::strtol(ReadSystemLine(proc + "/syscall").c_str(), nullptr, 10);
  return std::find(std::begin(kHarmless), std::end(kHarmless), call) == std::end(kHarmless);
}

class ProcessWalk {
 public:
  ProcessWalk(OwnedFiles& files, UsersSeen& seen, Watch& watch)
      : files_(files), seen_(seen), watch_(watch) {}

  Status Run() {
    std::vector<std::string> pids;
    const int error = ListNumbers("/proc", pids);
    if (error != 0) return StatusOfErrno(error, "/proc");
    // All mounts before any file: a process may have files by mounts that it does not see.
    AddMounts("/proc/self", {});
    for (const std::string& pid : pids) {
      if (!watch_.GoesOn()) return Watch::Stopped();
      if (pid != std::to_string(getpid())) AddMounts("/proc/" + pid, pid);
    }
    for (const std::string& pid : pids) {
      if (!watch_.GoesOn()) return Watch::Stopped();
      if (pid != std::to_string(getpid())) LookAt(pid);
    }
    TellUnseen();
    return error_ == 0 ? Status() : StatusOfErrno(error_, "/proc");
  }

 private:
  TargetUser UserOf(const std::string& pid) const {
    TargetUser user;
    user.pid = NumberOf(pid);
    user.program = ReadSystemLine("/proc/" + pid + "/comm");
    return user;
  }

  // The mounts of its mount namespace as far as its root shows them, each once.
  void AddMounts(const std::string& proc, const std::string& pid) {
    const std::string view = ReadLink(proc + "/ns/mnt") + " " + ReadLink(proc + "/root");
    if (!views_.insert(view).second) return;
    std::vector<Mount> mounts;
    (void)ReadMounts(proc + "/mountinfo", mounts);  // as far as they were told
    for (const Mount& each : mounts) {
      if (!devices_.emplace(each.id, each.device).second) continue;
      files_.TellMount(each, pid.empty() ? TargetUser() : UserOf(pid));
    }
  }

  void LookAt(const std::string& pid) {
    const std::string proc = "/proc/" + pid;
    std::vector<std::string> threads;
    (void)ListNumbers(proc + "/task", threads);
    LookAtDescriptors(pid, proc);
    LookAtMappings(pid, "/proc/" + (StateOf(proc) == 'Z' ? LiveOf(threads, pid) : pid));
    // Threads that share no descriptors with the others; the first one may have ended before them.
    for (const std::string& thread : threads) {
      if (thread == pid) continue;
      const long order = syscall(SYS_kcmp, NumberOf(pid), NumberOf(thread), KCMP_FILES, 0, 0);
      if (order > 0) LookAtDescriptors(pid, PathIn(proc + "/task", thread));
    }
  }

  // A thread that has not ended, by which the mappings can be seen that the first one, which has,
  // shows no more.
  static const std::string& LiveOf(const std::vector<std::string>& threads,
                                   const std::string& pid) {
    const auto live = std::find_if(threads.begin(), threads.end(), [](const std::string& each) {
      return StateOf("/proc/" + each) != 'Z';
    });
    return live == threads.end() ? pid : *live;
  }

  void LookAtDescriptors(const std::string& pid, const std::string& proc) {
    std::vector<std::string> numbers;
    const int error = ListNumbers(proc + "/fd", numbers);
    if (error == EACCES || error == EPERM) refused_.insert(pid);
    NoteShortage(error);
    for (const std::string& number : numbers) {
      const FdInfo info = ReadFdInfo(PathIn(proc + "/fdinfo", number));
      const auto mount = devices_.find(info.mount_id);
      if ((info.flags & O_PATH) != 0) continue;
      if (mount != devices_.end() && mount->second != files_.GetDevice()) continue;
      FileUse use;
      use.link = PathIn(proc + "/fd", number);
      Fd borrowed;
      // Of no mount that anybody sees: no file at all, or one of a mount that was taken away.
      if (mount == devices_.end()) {
        if (!ReadLink(use.link).starts_with('/')) continue;
        borrowed = Borrow(NumberOf(pid), NumberOf(number));
        if (!borrowed) {
          NoteShortage(errno);
          continue;
        }
        use.link = PathOfFd(borrowed.Get());
      }
      use.user.kind = Kind::kOpenFile;
      use.user.is_writer = (info.flags & O_ACCMODE) != O_RDONLY;
      Tell(pid, std::move(use), borrowed.Get());
    }
  }

  // What is not told because this process or the system has run out of something may well be there,
  // unlike what has gone meanwhile.
  void NoteShortage(int error) {
    if (error == EMFILE || error == ENFILE || error == ENOMEM) error_ = error;
  }

  // Waits a moment for a process that the kernel does not let go of: what tells its mappings may
  // wait for the same. All of them together are waited for a second. Whether it has come free.
  bool ComesFree(const std::string& proc) {
    constexpr auto kPause = std::chrono::milliseconds(50);
    while (IsStuck(proc)) {
      if (pauses_ == 0) return false;
      --pauses_;
      std::this_thread::sleep_for(kPause);
    }
    return true;
  }

  void LookAtMappings(const std::string& pid, const std::string& proc) {
    if (!ComesFree(proc)) {
      seen_.unseen.insert("what is mapped by " + UserOf(pid).program + " (pid " + pid +
                          "), which the kernel does not let go of");
      return;
    }
    errno = 0;
    std::istringstream lines(ReadSystemFile(proc + "/maps"));
    NoteShortage(errno);
    for (std::string line; std::getline(lines, line);) {
      std::istringstream fields(line);
      std::string range, access, offset, device;
      ino_t inode = 0;
      fields >> range >> access >> offset >> device >> inode;
      if (inode == 0 || !IsOurs(device)) continue;
      FileUse use;
      use.link = PathIn(proc + "/map_files", range);
      use.path = line.substr(std::min(line.find('/'), line.size()));
      use.user.kind = Kind::kMappedFile;
      // The link can be written if the file was opened for that: what is shared then may be written
      // later, too.
      struct stat link;
      use.user.is_writer = access.size() > 3 && access[3] == 's' &&
                           lstat(use.link.c_str(), &link) == 0 && (link.st_mode & S_IWUSR) != 0;
      Tell(pid, std::move(use), -1);
    }
  }

  // The list of mappings writes a device in hexadecimal numbers.
  bool IsOurs(const std::string& device) const {
    unsigned long major = 0;
    unsigned long minor = 0;
    char colon = 0;
    std::istringstream(device) >> std::hex >> major >> colon >> minor;
    return std::to_string(major) + ":" + std::to_string(minor) == files_.GetDevice();
  }

  void Tell(const std::string& pid, FileUse use, int borrowed) {
    struct statx found = {};
    const bool isHere = borrowed != -1;
    if (statx(isHere ? borrowed : AT_FDCWD, isHere ? "" : use.link.c_str(),
              AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT | (isHere ? AT_EMPTY_PATH : 0),
              STATX_BASIC_STATS, &found) == 0) {
      if (!S_ISREG(found.stx_mode) || found.stx_nlink == 0) return;
      use.device = makedev(found.stx_dev_major, found.stx_dev_minor);
      use.inode = found.stx_ino;
      use.links = found.stx_nlink;
    } else if ((errno != EACCES && errno != EPERM) || !files_.Identify(use)) {
      return;  // gone; only root may look behind a mapping, another one goes by its path
    }
    if (!files_.MayHave(use.device, use.inode)) return;
    const std::string path = ReadLink(use.link);
    if (!path.empty()) use.path = path;
    const TargetUser who = UserOf(pid);
    use.user.pid = who.pid;
    use.user.program = who.program;
    files_.Tell(std::move(use));
  }

  void TellUnseen() const {
    if (!refused_.empty()) {
      seen_.unseen.insert("what " + std::to_string(refused_.size()) +
                          " processes of other users have open: run it as root to see that");
    }
    // The first namespace of processes, which sees those of all others, always has this number.
    if (ReadLink("/proc/self/ns/pid") != "pid:[4026531836]") {
      seen_.unseen.insert("processes outside of this container");
    }
    const std::string threads = ReadSystemLine("/proc/fs/nfsd/threads");
    if (!threads.empty() && threads != "0") {
      seen_.unseen.insert("what the NFS server of the kernel has open for its clients");
    }
    std::vector<std::string> backstores;
    for (const char* kind : {"fileio_", "iblock_"}) {
      (void)ListSystemDir("/sys/kernel/config/target/core", kind, backstores);
    }
    if (!backstores.empty()) {
      seen_.unseen.insert("what the SCSI targets of the kernel have open");
    }
  }

  OwnedFiles& files_;
  UsersSeen& seen_;
  Watch& watch_;
  std::set<std::string> views_;                   // mount namespace and root
  std::map<std::uint64_t, std::string> devices_;  // of mounts
  std::set<std::string> refused_;                 // processes
  int pauses_ = 20;
  int error_ = 0;  // for which nobody knows who else there is
};

}  // namespace

Status FindProcessUsers(OwnedFiles& files, UsersSeen& seen, Watch& watch) {
  return ProcessWalk(files, seen, watch).Run();
}

}  // namespace VrelDR
