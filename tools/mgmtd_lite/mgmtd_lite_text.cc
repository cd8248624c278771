// Text forms of mgmtd-lite: the log line, bindings as "name=type:value", and the
// registration file.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fstream>

#include "bnode_types.h"
#include "mdc_remote_reg.h"
#include "mgmtd_lite.h"

void ml_log_line(const char *format, ...)
{
    // One write a line, so that readers of the log never see half of one and a line costs
    // one system call on the request path.
    static const char prefix[] = "mgmtd-lite: ";
    char small[512];
    std::string large;
    char *line = small;
    va_list ap;
    va_list again;

    va_start(ap, format);
    va_copy(again, ap);
    memcpy(small, prefix, sizeof(prefix) - 1);
    const size_t room = sizeof(small) - sizeof(prefix);  // the newline's place kept
    int len = vsnprintf(small + sizeof(prefix) - 1, room, format, ap);
    if (len < 0) {
        len = 0;
    } else if (static_cast<size_t>(len) >= room) {
        large.assign(sizeof(prefix) - 1 + static_cast<size_t>(len) + 2, '\0');
        memcpy(large.data(), prefix, sizeof(prefix) - 1);
        vsnprintf(large.data() + sizeof(prefix) - 1, static_cast<size_t>(len) + 1, format, again);
        line = large.data();
    }
    va_end(again);
    va_end(ap);
    size_t total = sizeof(prefix) - 1 + static_cast<size_t>(len);
    line[total++] = '\n';
    fflush(stderr);
    for (size_t done = 0; done < total;) {
        const ssize_t res = write(STDERR_FILENO, line + done, total - done);
        if (res < 0 && errno == EINTR) {
            continue;
        }
        if (res <= 0) {
            break;
        }
        done += static_cast<size_t>(res);
    }
}

std::string ml_binding_to_text(const bn_binding *binding)
{
    std::string text;
    char *value = nullptr;
    uint32 flagged_type = 0;
    bn_type type = bt_NONE;
    bn_type_flags_bf type_flags = 0;
    const char *type_name = nullptr;

    if (binding == nullptr) {
        return text;
    }
    text = ts_str(binding->bn_node_name);
    text += "=";
    const bn_attrib *attrib = nullptr;
    if (bn_binding_get_attrib(binding, ba_value, &attrib) != 0 || attrib == nullptr) {
        return text;
    }
    bn_attrib_get_type(attrib, &type, &type_flags);
    type_name = lc_enum_to_string_quiet_null(bn_type_map, type);
    text += type_name != nullptr ? type_name : std::to_string(static_cast<int>(type));
    text += ":";
    if ((type_flags & btf_invalid) != 0) {
        text += "(invalid)";
    } else if (bn_binding_get_str(binding, ba_value, bt_NONE, &flagged_type, &value) == 0 &&
               value != nullptr) {
        text += value;
    }
    free(value);
    return text;
}

std::string ml_request_bindings_text(const bn_request *req)
{
    std::string text;
    const uint32 num_nodes = bn_request_get_num_nodes(req);

    for (uint32 i = 0; i < num_nodes; ++i) {
        const bn_request_per_node *node = bn_request_get_nth_node_const(req, i);
        if (node == nullptr || node->brn_binding == nullptr) {
            continue;
        }
        if (!text.empty()) {
            text += " ";
        }
        text += ml_binding_to_text(node->brn_binding);
    }
    return text;
}

int ml_cap_mask_from_groups(const std::string &groups, uint32 *ret_mask)
{
    int err = 0;
    uint32 mask = 0;
    size_t start = 0;

    bail_null(ret_mask);
    *ret_mask = 0;
    while (start <= groups.size()) {
        const size_t comma = std::min(groups.find(',', start), groups.size());
        const std::string group = groups.substr(start, comma - start);
        uint32 slot = 0;
        while (mdc_capability_gid_map[slot].lesm_string != nullptr &&
               group != mdc_capability_gid_map[slot].lesm_string) {
            ++slot;
        }
        if (mdc_capability_gid_map[slot].lesm_string == nullptr || slot >= 32) {
            err = lc_err_parse_error;
            goto bail;
        }
        mask |= 1U << slot;
        start = comma + 1;
    }
    *ret_mask = mask;

bail:
    return err;
}

int ml_registration_load_file(ml_registration *reg, const char *path)
{
    int err = 0;
    std::ifstream in;
    std::string line;
    uint32 line_no = 0;
    uint32 cap_mask = 0;  // of the names that follow a 'caps' line

    bail_null(reg);
    bail_null(path);
    in.open(path);
    if (!in) {
        fprintf(stderr, "mgmtd-lite: cannot open registration file %s: %s\n", path,
                strerror(errno));
        err = lc_err_file_not_found;
        goto bail;
    }
    while (std::getline(in, line)) {
        ++line_no;
        size_t start = line.find_first_not_of(" \t\r");
        size_t end = line.find_last_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') {
            continue;
        }
        const std::string text = line.substr(start, end - start + 1);
        const size_t gap = text.find_first_of(" \t");
        const std::string word = text.substr(0, gap);
        const std::string rest =
            gap == std::string::npos ? "" : text.substr(text.find_first_not_of(" \t", gap));
        if (word == "client") {
            if (rest.empty()) {
                fprintf(stderr, "mgmtd-lite: %s:%u: 'client' wants a client name\n", path,
                        line_no);
                err = lc_err_parse_error;
                goto bail;
            }
            reg->mr_owner = rest;
        } else if (word == "caps" || (word[0] == '/' && word.back() != '/')) {
            uint32 mask = cap_mask;
            if ((word == "caps" || !rest.empty()) &&
                (rest.find_first_of(" \t") != std::string::npos ||
                 ml_cap_mask_from_groups(rest, &mask) != 0)) {
                fprintf(stderr, "mgmtd-lite: %s:%u: bad capability groups '%s'\n", path,
                        line_no, rest.c_str());
                err = lc_err_parse_error;
                goto bail;
            }
            if (word == "caps") {
                cap_mask = mask;
            } else {
                reg->mr_names.push_back(word);
                reg->mr_cap_masks.push_back(mask);
            }
        } else {
            fprintf(stderr,
                    "mgmtd-lite: %s:%u: bad line '%s' (want an absolute node name, "
                    "'caps GROUP[,GROUP...]' or 'client NAME')\n",
                    path, line_no, text.c_str());
            err = lc_err_parse_error;
            goto bail;
        }
    }
    if (reg->mr_owner.empty()) {
        reg->mr_owner = ML_DEFAULT_OWNER;
    }

bail:
    return err;
}
