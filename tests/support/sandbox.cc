#include "sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

extern char **environ;

namespace ovd_test {
namespace {

constexpr const char kOldDev[] = "/run/ovd-test-olddev";

bool fail(std::string *ret_why, const std::string &what)
{
    if (ret_why != nullptr) {
        *ret_why = what + ": " + strerror(errno);
    }
    return false;
}

// Recreates the host's /dev entries inside a fresh tmpfs, binding each in.
bool rebuild_dev(std::string *ret_why)
{
    mkdir("/run", 0755);
    mkdir(kOldDev, 0755);
    if (mount("/dev", kOldDev, nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return fail(ret_why, "bind /dev");
    }
    if (mount("tmpfs", "/dev", "tmpfs", MS_NOSUID, "mode=0755") != 0) {
        return fail(ret_why, "tmpfs on /dev");
    }
    DIR *dir = opendir(kOldDev);
    if (dir == nullptr) {
        return fail(ret_why, "opendir old /dev");
    }
    while (struct dirent *ent = readdir(dir)) {
        const std::string name = ent->d_name;
        if (name == "." || name == ".." || name == "log") {
            continue;
        }
        const std::string from = std::string(kOldDev) + "/" + name;
        const std::string to = "/dev/" + name;
        struct stat st;
        if (lstat(from.c_str(), &st) != 0) {
            continue;
        }
        if (S_ISLNK(st.st_mode)) {
            char target[4096];
            const ssize_t len = readlink(from.c_str(), target, sizeof(target) - 1);
            if (len > 0) {
                target[len] = '\0';
                if (symlink(target, to.c_str()) != 0) {
                    // Best effort: a missing convenience link is no reason to fail.
                }
            }
            continue;
        }
        if (S_ISDIR(st.st_mode)) {
            mkdir(to.c_str(), 0755);
        } else {
            const int fd = open(to.c_str(), O_CREAT | O_WRONLY, 0644);
            if (fd >= 0) {
                close(fd);
            }
        }
        mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr);
    }
    closedir(dir);
    return true;
}

}  // namespace

bool enter_sandbox(std::string *ret_why)
{
    if (geteuid() != 0) {
        errno = EPERM;
        return fail(ret_why, "needs root");
    }
    if (unshare(CLONE_NEWNS) != 0) {
        return fail(ret_why, "unshare(CLONE_NEWNS)");
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return fail(ret_why, "make / private");
    }
    if (!rebuild_dev(ret_why)) {
        return false;
    }
    mkdir("/var/opt", 0755);
    if (mount("tmpfs", "/var/opt", "tmpfs", 0, "mode=0755") != 0) {
        return fail(ret_why, "tmpfs on /var/opt");
    }
    mkdir("/var/opt/kfs", 0755);
    mkdir("/var/opt/kfs/output", 0755);
    // The management sockets live under /vtmp/gcl-socks: each test program has its own.
    mkdir("/vtmp", 0755);
    if (mount("tmpfs", "/vtmp", "tmpfs", 0, "mode=0755") != 0) {
        return fail(ret_why, "tmpfs on /vtmp");
    }
    mkdir("/vtmp/gcl-socks", 0777);
    return true;
}

namespace {

constexpr const char kSysClass[] = "/sys/class";
constexpr const char kIbSysfs[] = "/sys/class/infiniband";
constexpr const char kOldSysClass[] = "/vtmp/.ovd-test-sys-class";
bool g_sys_class_made = false;
bool g_ib_sysfs_mounted = false;

// A tmpfs on /sys/class with every class of the host bound back in at its own name (so
// that the relative links inside them still resolve), and an empty infiniband folder.
bool make_sys_class(std::string *ret_why)
{
    mkdir(kOldSysClass, 0755);
    if (mount(kSysClass, kOldSysClass, nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return fail(ret_why, "bind /sys/class");
    }
    if (mount("tmpfs", kSysClass, "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0755") != 0) {
        return fail(ret_why, "tmpfs on /sys/class");
    }
    DIR *dir = opendir(kOldSysClass);
    if (dir == nullptr) {
        return fail(ret_why, "opendir old /sys/class");
    }
    while (struct dirent *ent = readdir(dir)) {
        const std::string name = ent->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        const std::string to = std::string(kSysClass) + "/" + name;
        mkdir(to.c_str(), 0755);
        mount((std::string(kOldSysClass) + "/" + name).c_str(), to.c_str(), nullptr,
              MS_BIND | MS_REC, nullptr);
    }
    closedir(dir);
    umount2(kOldSysClass, MNT_DETACH);
    rmdir(kOldSysClass);
    if (mkdir(kIbSysfs, 0755) != 0) {
        return fail(ret_why, "mkdir /sys/class/infiniband");
    }
    return true;
}

}  // namespace

bool mount_ib_sysfs(const std::string &tree, std::string *ret_why)
{
    struct stat st;
    if (!g_sys_class_made && stat(kIbSysfs, &st) != 0) {
        if (!make_sys_class(ret_why)) {
            return false;
        }
    }
    g_sys_class_made = true;
    unmount_ib_sysfs();
    if (mount(tree.c_str(), kIbSysfs, nullptr, MS_BIND, nullptr) != 0) {
        return fail(ret_why, "bind " + tree + " on /sys/class/infiniband");
    }
    g_ib_sysfs_mounted = true;
    return true;
}

void unmount_ib_sysfs()
{
    if (g_ib_sysfs_mounted) {
        umount2(kIbSysfs, MNT_DETACH);
        g_ib_sysfs_mounted = false;
    }
}

void set_kfs_link(const std::string &name, const std::string &target)
{
    const std::string path = "/var/opt/kfs/output/" + name;
    unlink(path.c_str());
    if (!target.empty()) {
        if (symlink(target.c_str(), path.c_str()) != 0) {
            perror("symlink");
        }
    }
}

SyslogReceiver::SyslogReceiver()
{
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
        return;
    }
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, "/dev/log", sizeof(addr.sun_path) - 1);
    unlink("/dev/log");
    if (bind(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0) {
        close(fd_);
        fd_ = -1;
        return;
    }
    chmod("/dev/log", 0666);
    reader_ = std::thread([this] { read_loop(); });
}

SyslogReceiver::~SyslogReceiver()
{
    stop_ = true;
    if (reader_.joinable()) {
        reader_.join();
    }
    if (fd_ >= 0) {
        close(fd_);
        unlink("/dev/log");
    }
}

void SyslogReceiver::read_loop()
{
    while (!stop_) {
        pollfd pfd{fd_, POLLIN, 0};
        if (poll(&pfd, 1, 20) <= 0) {
            continue;
        }
        char buf[8192];
        const ssize_t n = recv(fd_, buf, sizeof(buf), MSG_DONTWAIT);
        if (n <= 0) {
            continue;
        }
        {
            std::lock_guard<std::mutex> lock(mutex_);
            lines_.emplace_back(buf, static_cast<size_t>(n));
        }
        arrived_.notify_all();
    }
}

void SyslogReceiver::drain(std::chrono::milliseconds wait)
{
    std::unique_lock<std::mutex> lock(mutex_);
    size_t seen = lines_.size();
    if (!arrived_.wait_for(lock, wait, [&] { return lines_.size() > seen; })) {
        return;
    }
    // The rest of a burst follows within moments.
    for (;;) {
        seen = lines_.size();
        if (!arrived_.wait_for(lock, std::chrono::milliseconds(10),
                               [&] { return lines_.size() > seen; })) {
            return;
        }
    }
}

std::vector<std::string> SyslogReceiver::lines() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

void SyslogReceiver::clear()
{
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

int SyslogReceiver::find_locked(const std::string &needle) const
{
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].find(needle) != std::string::npos) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

int SyslogReceiver::find(const std::string &needle) const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return find_locked(needle);
}

bool SyslogReceiver::wait_for(const std::string &needle, std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return find_locked(needle) >= 0; });
}

Child::~Child()
{
    if (pid_ > 0 && status_ < 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

bool Child::start(const std::vector<std::string> &argv, const std::vector<std::string> &extra_env)
{
    std::vector<std::string> env_strings;
    for (char **e = environ; *e != nullptr; ++e) {
        env_strings.emplace_back(*e);
    }
    env_strings.insert(env_strings.end(), extra_env.begin(), extra_env.end());
    std::vector<char *> args;
    for (const auto &a : argv) {
        args.push_back(const_cast<char *>(a.c_str()));
    }
    args.push_back(nullptr);
    std::vector<char *> envp;
    for (const auto &e : env_strings) {
        envp.push_back(const_cast<char *>(e.c_str()));
    }
    envp.push_back(nullptr);

    status_ = -1;
    pid_ = fork();
    if (pid_ < 0) {
        return false;
    }
    if (pid_ == 0) {
        execve(args[0], args.data(), envp.data());
        _exit(127);
    }
    return true;
}

bool Child::running()
{
    if (pid_ <= 0 || status_ >= 0) {
        return false;
    }
    int status = 0;
    const pid_t r = waitpid(pid_, &status, WNOHANG);
    if (r == pid_) {
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return false;
    }
    return true;
}

void Child::signal(int signum)
{
    if (pid_ > 0 && status_ < 0) {
        kill(pid_, signum);
    }
}

int Child::wait(std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (running()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return status_;
}

}  // namespace ovd_test
