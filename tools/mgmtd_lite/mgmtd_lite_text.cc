// Text forms of mgmtd-lite: the log line, bindings as "name=type:value", and the
// registration file.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fstream>

#include "bnode_types.h"
#include "mgmtd_lite.h"

void ml_log_line(const char *format, ...)
{
    va_list ap;

    va_start(ap, format);
    fputs("mgmtd-lite: ", stderr);
    vfprintf(stderr, format, ap);
    fputc('\n', stderr);
    fflush(stderr);
    va_end(ap);
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

int ml_registration_load_file(ml_registration *reg, const char *path)
{
    int err = 0;
    std::ifstream in;
    std::string line;
    uint32 line_no = 0;

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
        if (text.compare(0, 7, "client ") == 0) {
            const size_t name_start = text.find_first_not_of(" \t", 7);
            if (name_start == std::string::npos) {
                fprintf(stderr, "mgmtd-lite: %s:%u: 'client' wants a client name\n", path,
                        line_no);
                err = lc_err_parse_error;
                goto bail;
            }
            reg->mr_owner = text.substr(name_start);
        } else if (text[0] == '/' && text.find_first_of(" \t") == std::string::npos &&
                   text.back() != '/') {
            reg->mr_names.push_back(text);
        } else {
            fprintf(stderr,
                    "mgmtd-lite: %s:%u: bad line '%s' (want an absolute node name or "
                    "'client NAME')\n",
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
