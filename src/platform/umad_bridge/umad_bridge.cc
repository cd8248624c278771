// A preload for development machines, where the fabric is simulated and the process sees
// one InfiniBand device of the simulator's naming instead of one device "vq_ib_<swid>" per
// SWID.  It is stacked in front of the simulator's own preload:
//
//     LD_PRELOAD=libovd_umad_bridge.so:<simulator preload>
//
// and renames, on the way in, every SWID device name to the simulator's device
// (OVD_UMAD_BRIDGE_DEV, "ibsim0" when unset):
//
//  - the umad calls that take a device name (umad_open_port, umad_get_ca, umad_get_port):
//    the umad library matches the name against the ibdev files of the umad class, whose
//    contents name the simulator's device, so renaming paths alone would not do;
//  - open() and opendir() of paths below /sys/class/infiniband/vq_ib_<n>/, which then go
//    on to the simulator's preload and land in its picture of sysfs.
//
// Everything else passes through untouched; the calls go on to the next definition in
// the lookup order (the simulator's preload, then the real libraries).
#undef _FORTIFY_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

#include <infiniband/umad.h>

namespace {

constexpr const char *k_default_target = "ibsim0";
constexpr const char *k_name_prefix = "vq_ib_";
constexpr const char *k_sysfs_ib = "/sys/class/infiniband/";
constexpr const char *k_umad_version = "IBUMAD_1.0";

const char *target_device()
{
    const char *env = getenv("OVD_UMAD_BRIDGE_DEV");
    return env != nullptr && *env != '\0' ? env : k_default_target;
}

// Length of a SWID device name at the start of `s` ("vq_ib_" and digits), 0 if none.
size_t swid_name_len(const char *s)
{
    const size_t plen = strlen(k_name_prefix);
    size_t n = plen;
    if (strncmp(s, k_name_prefix, plen) != 0) {
        return 0;
    }
    while (s[n] >= '0' && s[n] <= '9') {
        ++n;
    }
    return n > plen ? n : 0;
}

// The device name to hand on: the simulator's for a whole SWID device name.
const char *map_name(const char *name)
{
    if (name != nullptr) {
        const size_t n = swid_name_len(name);
        if (n > 0 && name[n] == '\0') {
            return target_device();
        }
    }
    return name;
}

// The path to hand on: below the simulator's device for a SWID device's sysfs folder.
const char *map_path(const char *path, char *buf, size_t size)
{
    if (path == nullptr) {
        return path;
    }
    const size_t plen = strlen(k_sysfs_ib);
    if (strncmp(path, k_sysfs_ib, plen) != 0) {
        return path;
    }
    const size_t n = swid_name_len(path + plen);
    const char *rest = path + plen + n;
    if (n == 0 || (*rest != '\0' && *rest != '/')) {
        return path;
    }
    const int len = snprintf(buf, size, "%s%s%s", k_sysfs_ib, target_device(), rest);
    return len > 0 && static_cast<size_t>(len) < size ? buf : path;
}

template <typename Fn>
Fn next_symbol(const char *name, const char *version)
{
    void *sym = version != nullptr ? dlvsym(RTLD_NEXT, name, version) : nullptr;
    if (sym == nullptr) {
        sym = dlsym(RTLD_NEXT, name);
    }
    return reinterpret_cast<Fn>(sym);
}

}  // namespace

extern "C" {

int umad_open_port(const char *ca_name, int portnum)
{
    using fn_t = int (*)(const char *, int);
    static fn_t next = next_symbol<fn_t>("umad_open_port", k_umad_version);
    return next != nullptr ? next(map_name(ca_name), portnum) : -ENOSYS;
}

int umad_get_ca(const char *ca_name, umad_ca_t *ca)
{
    using fn_t = int (*)(const char *, umad_ca_t *);
    static fn_t next = next_symbol<fn_t>("umad_get_ca", k_umad_version);
    return next != nullptr ? next(map_name(ca_name), ca) : -ENOSYS;
}

int umad_get_port(const char *ca_name, int portnum, umad_port_t *port)
{
    using fn_t = int (*)(const char *, int, umad_port_t *);
    static fn_t next = next_symbol<fn_t>("umad_get_port", k_umad_version);
    return next != nullptr ? next(map_name(ca_name), portnum, port) : -ENOSYS;
}

int open(const char *path, int flags, ...)
{
    using fn_t = int (*)(const char *, int, ...);
    static fn_t next = next_symbol<fn_t>("open", nullptr);
    mode_t mode = 0;
    char buf[4096];

    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
        va_list ap;
        va_start(ap, flags);
        mode = static_cast<mode_t>(va_arg(ap, int));
        va_end(ap);
    }
    if (next == nullptr) {
        errno = ENOSYS;
        return -1;
    }
    return next(map_path(path, buf, sizeof(buf)), flags, mode);
}

DIR *opendir(const char *name)
{
    using fn_t = DIR *(*)(const char *);
    static fn_t next = next_symbol<fn_t>("opendir", nullptr);
    char buf[4096];

    if (next == nullptr) {
        errno = ENOSYS;
        return nullptr;
    }
    return next(map_path(name, buf, sizeof(buf)));
}

}  // extern "C"
