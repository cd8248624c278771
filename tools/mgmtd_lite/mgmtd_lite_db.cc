// The configuration database of mgmtd-lite: loading it from text, reading it by get and
// iterate, and changing it by set requests.
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "bnode_types.h"
#include "logging.h"
#include "mgmtd_lite.h"

namespace {

// Type names accepted beside the names of bn_type_map.
const lc_enum_string_map ml_type_aliases[] = {
    {bt_bool, "tbool"},
    {bt_time_sec, "time"},
    {bt_datetime_sec, "datetime"},
    {bt_duration_sec, "duration"},
    {0, nullptr},
};

// The offsets of the separators of a name that are not escaped, the leading one excluded.
std::vector<size_t> ml_name_separators(const std::string &name)
{
    std::vector<size_t> seps;
    for (size_t i = 1; i < name.size(); ++i) {
        if (name[i] == bn_name_escape_char) {
            ++i;
        } else if (name[i] == bn_name_separator_char) {
            seps.push_back(i);
        }
    }
    return seps;
}

// Every node of the tree: the stored names and all their ancestors.
std::set<std::string> ml_db_all_nodes(const ml_db *db)
{
    std::set<std::string> all;
    for (const auto &entry : db->mdb_nodes) {
        const std::string &name = entry.first;
        for (const size_t sep : ml_name_separators(name)) {
            all.insert(name.substr(0, sep));
        }
        all.insert(name);
    }
    return all;
}

tbool ml_has_children(const std::set<std::string> &all, const std::string &name)
{
    const std::string prefix = name + "/";
    const auto it = all.lower_bound(prefix);
    return it != all.end() && it->compare(0, prefix.size(), prefix) == 0;
}

std::string ml_trim(const std::string &text)
{
    size_t start = 0;
    size_t end = text.size();
    while (start < end && isspace(static_cast<unsigned char>(text[start]))) {
        ++start;
    }
    while (end > start && isspace(static_cast<unsigned char>(text[end - 1]))) {
        --end;
    }
    return text.substr(start, end - start);
}

// Whether a binding carries a usable value.
tbool ml_binding_has_value(const bn_binding *binding)
{
    const bn_attrib *attrib = nullptr;
    if (bn_binding_get_attrib(binding, ba_value, &attrib) != 0 || attrib == nullptr) {
        return false;
    }
    return (attrib->ba_type_flags & (btf_invalid | btf_no_value)) == 0;
}

// A stored copy: name and attributes only.
int ml_binding_store_copy(const bn_binding *binding, ml_binding_ptr *ret_copy)
{
    int err = 0;
    bn_binding *copy = nullptr;

    err = bn_binding_new_components(&copy, ts_str(binding->bn_node_name), binding->bn_attribs);
    bail_error(err);
    ret_copy->reset(copy);
    copy = nullptr;

bail:
    bn_binding_free(&copy);
    return err;
}

int ml_dup(const bn_binding *binding, ml_binding_ptr *ret_copy)
{
    int err = 0;
    bn_binding *copy = nullptr;

    err = bn_binding_dup(binding, &copy);
    bail_error(err);
    ret_copy->reset(copy);

bail:
    return err;
}

tbool ml_same_value(const bn_binding *b1, const bn_binding *b2)
{
    char *s1 = nullptr;
    char *s2 = nullptr;
    uint32 t1 = 0;
    uint32 t2 = 0;
    tbool same = false;

    if (bn_binding_get_str(b1, ba_value, bt_NONE, &t1, &s1) == 0 &&
        bn_binding_get_str(b2, ba_value, bt_NONE, &t2, &s2) == 0) {
        same = t1 == t2 && safe_strcmp(s1, s2) == 0;
    }
    free(s1);
    free(s2);
    return same;
}

// The working state of one set request.
struct ml_set_work {
    std::map<std::string, ml_binding_ptr> msw_nodes;
    std::vector<ml_change> msw_changes;
};

int ml_work_record(ml_set_work *work, const char *change_type, const std::string &name,
                   const bn_binding *new_binding, const bn_binding *prev_binding)
{
    int err = 0;
    ml_change change;

    change.mc_change_type = change_type;
    change.mc_name = name;
    if (new_binding != nullptr) {
        err = ml_dup(new_binding, &change.mc_new);
        bail_error(err);
    }
    if (prev_binding != nullptr) {
        err = ml_dup(prev_binding, &change.mc_prev);
        bail_error(err);
    }
    work->msw_changes.push_back(std::move(change));

bail:
    return err;
}

// Stores a value, recording an add or a modify.
int ml_work_store(ml_set_work *work, const std::string &name, const bn_binding *binding)
{
    int err = 0;
    ml_binding_ptr copy;

    err = ml_binding_store_copy(binding, &copy);
    bail_error(err);
    {
        auto it = work->msw_nodes.find(name);
        if (it == work->msw_nodes.end()) {
            err = ml_work_record(work, "add", name, copy.get(), nullptr);
            bail_error(err);
            work->msw_nodes[name] = std::move(copy);
        } else {
            err = ml_work_record(work, "modify", name, copy.get(), it->second.get());
            bail_error(err);
            it->second = std::move(copy);
        }
    }

bail:
    return err;
}

// Removes a node and everything under it; *ret_found tells whether there was any.
int ml_work_delete(ml_set_work *work, const std::string &name, tbool *ret_found)
{
    int err = 0;
    const std::string prefix = name + "/";

    *ret_found = false;
    for (auto it = work->msw_nodes.begin(); it != work->msw_nodes.end();) {
        if (it->first == name || it->first.compare(0, prefix.size(), prefix) == 0) {
            err = ml_work_record(work, "delete", it->first, nullptr, it->second.get());
            bail_error(err);
            *ret_found = true;
            it = work->msw_nodes.erase(it);
        } else {
            ++it;
        }
    }

bail:
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Loading.

int ml_type_from_name(const char *type_name, bn_type *ret_type)
{
    int err = 0;

    bail_null(type_name);
    bail_null(ret_type);
    *ret_type = bt_NONE;
    for (const lc_enum_string_map *row = bn_type_map; row->lesm_string != nullptr; ++row) {
        if (strcmp(row->lesm_string, type_name) == 0) {
            *ret_type = static_cast<bn_type>(row->lesm_enum);
            goto bail;
        }
    }
    for (const lc_enum_string_map *row = ml_type_aliases; row->lesm_string != nullptr; ++row) {
        if (strcmp(row->lesm_string, type_name) == 0) {
            *ret_type = static_cast<bn_type>(row->lesm_enum);
            goto bail;
        }
    }
    err = lc_err_not_found;

bail:
    return err;
}

int ml_db_load_file(ml_db *db, const char *path)
{
    int err = 0;
    std::ifstream in;
    std::string line;
    uint32 line_no = 0;
    bn_binding *binding = nullptr;

    bail_null(db);
    bail_null(path);
    in.open(path);
    if (!in) {
        fprintf(stderr, "mgmtd-lite: cannot open configuration file %s: %s\n", path,
                strerror(errno));
        err = lc_err_file_not_found;
        goto bail;
    }
    while (std::getline(in, line)) {
        ++line_no;
        const std::string text = ml_trim(line);
        if (text.empty() || text[0] == '#') {
            continue;
        }
        size_t end_name = text.find_first_of(" \t");
        const std::string name = text.substr(0, end_name);
        std::string rest = end_name == std::string::npos ? "" : ml_trim(text.substr(end_name));
        size_t end_type = rest.find_first_of(" \t");
        const std::string type_name = rest.substr(0, end_type);
        const std::string value =
            end_type == std::string::npos ? "" : ml_trim(rest.substr(end_type));
        bn_type type = bt_NONE;

        if (name.empty() || name[0] != '/' || name.size() < 2 || name.back() == '/') {
            fprintf(stderr, "mgmtd-lite: %s:%u: bad node name '%s' (want NAME TYPE VALUE)\n",
                    path, line_no, name.c_str());
            err = lc_err_parse_error;
            goto bail;
        }
        if (type_name.empty() || ml_type_from_name(type_name.c_str(), &type) != 0) {
            fprintf(stderr, "mgmtd-lite: %s:%u: unknown type '%s' for %s\n", path, line_no,
                    type_name.c_str(), name.c_str());
            err = lc_err_parse_error;
            goto bail;
        }
        if (db->mdb_nodes.count(name) != 0) {
            fprintf(stderr, "mgmtd-lite: %s:%u: %s is given twice\n", path, line_no,
                    name.c_str());
            err = lc_err_parse_error;
            goto bail;
        }
        if (bn_binding_new_str(&binding, name.c_str(), ba_value, type, 0, value.c_str()) != 0 ||
            !ml_binding_has_value(binding)) {
            fprintf(stderr, "mgmtd-lite: %s:%u: bad %s value '%s' for %s\n", path, line_no,
                    type_name.c_str(), value.c_str(), name.c_str());
            err = lc_err_parse_error;
            goto bail;
        }
        {
            ml_binding_ptr initial;
            err = ml_dup(binding, &initial);
            bail_error(err);
            db->mdb_initial[name] = std::move(initial);
        }
        db->mdb_nodes[name].reset(binding);
        binding = nullptr;
    }

bail:
    bn_binding_free(&binding);
    return err;
}

// ---------------------------------------------------------------------------------------
// Reading.

tbool ml_db_node_exists(const ml_db *db, const std::string &name)
{
    if (db->mdb_nodes.count(name) != 0) {
        return true;
    }
    const std::string prefix = name == "/" ? name : name + "/";
    const auto it = db->mdb_nodes.lower_bound(prefix);
    return it != db->mdb_nodes.end() && it->first.compare(0, prefix.size(), prefix) == 0;
}

int ml_db_get(const ml_db *db, const std::string &name, bn_binding **ret_binding)
{
    int err = 0;
    ml_binding_ptr copy;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    {
        const auto it = db->mdb_nodes.find(name);
        if (it != db->mdb_nodes.end()) {
            err = ml_dup(it->second.get(), &copy);
            bail_error(err);
            *ret_binding = copy.release();
        } else if (ml_db_node_exists(db, name)) {
            err = bn_binding_new_named(ret_binding, name.c_str());
            bail_error(err);
        }
    }

bail:
    return err;
}

int ml_db_iterate(const ml_db *db, const std::string &name, bn_query_node_flags_bf flags,
                  std::vector<ml_binding_ptr> *resp)
{
    int err = 0;
    const std::set<std::string> all = ml_db_all_nodes(db);
    const std::string prefix = name == "/" ? name : name + "/";
    const tbool subtree = (flags & bqnf_sel_iterate_subtree) != 0;
    const tbool include_self = (flags & bqnf_sel_iterate_include_self) != 0;
    const tbool leaf_only = (flags & bqnf_sel_iterate_leaf_nodes_only) != 0;
    bn_binding *binding = nullptr;

    bail_null(resp);
    for (const std::string &node : all) {
        if (node == name) {
            if (!include_self) {
                continue;
            }
        } else if (node.compare(0, prefix.size(), prefix) == 0) {
            const std::string rest = node.substr(prefix.size());
            const size_t depth = ml_name_separators("/" + rest).size() + 1;
            if (depth > 1 && !subtree) {
                continue;
            }
        } else {
            continue;
        }
        if (leaf_only && ml_has_children(all, node)) {
            continue;
        }
        err = ml_db_get(db, node, &binding);
        bail_error(err);
        if (binding != nullptr) {
            resp->emplace_back(binding);
            binding = nullptr;
        }
    }

bail:
    bn_binding_free(&binding);
    return err;
}

// ---------------------------------------------------------------------------------------
// Changing.

int ml_db_apply_set(ml_db *db, const bn_request *req, uint32 *ret_code, std::string *ret_msg,
                    std::vector<ml_change> *ret_changes)
{
    int err = 0;
    ml_set_work work;
    uint32 num_nodes = 0;

    bail_null(db);
    bail_null(req);
    bail_null(ret_code);
    bail_null(ret_msg);
    bail_null(ret_changes);
    *ret_code = 0;
    ret_msg->clear();
    for (const auto &entry : db->mdb_nodes) {
        ml_binding_ptr copy;
        err = ml_dup(entry.second.get(), &copy);
        bail_error(err);
        work.msw_nodes[entry.first] = std::move(copy);
    }

    num_nodes = bn_request_get_num_nodes(req);
    for (uint32 i = 0; i < num_nodes && *ret_code == 0; ++i) {
        const bn_request_per_node *node = bn_request_get_nth_node_const(req, i);
        if (node == nullptr || node->brn_binding == nullptr) {
            continue;
        }
        const std::string name = ts_str(node->brn_binding->bn_node_name);
        const bn_set_subop subop = node->brn_node_settings.brns_set.bsn_set_subop;
        tbool found = false;

        if (name.empty() || name[0] != '/') {
            *ret_code = lc_err_bad_path;
            *ret_msg = "bad node name '" + name + "'";
            break;
        }
        switch (subop) {
        case bsso_create:
            if (work.msw_nodes.count(name) != 0) {
                *ret_code = lc_err_exists;
                *ret_msg = "node " + name + " already exists";
            } else if (!ml_binding_has_value(node->brn_binding)) {
                *ret_code = lc_err_bad_type;
                *ret_msg = "bad value for " + name;
            } else {
                err = ml_work_store(&work, name, node->brn_binding);
                bail_error(err);
            }
            break;
        case bsso_modify:
            if (!ml_binding_has_value(node->brn_binding)) {
                *ret_code = lc_err_bad_type;
                *ret_msg = "bad value for " + name;
            } else {
                auto it = work.msw_nodes.find(name);
                if (it == work.msw_nodes.end() ||
                    !ml_same_value(it->second.get(), node->brn_binding)) {
                    err = ml_work_store(&work, name, node->brn_binding);
                    bail_error(err);
                }
            }
            break;
        case bsso_delete:
            err = ml_work_delete(&work, name, &found);
            bail_error(err);
            if (!found) {
                *ret_code = lc_err_not_found;
                *ret_msg = "no node " + name + " to delete";
            }
            break;
        case bsso_reset: {
            const auto initial = db->mdb_initial.find(name);
            if (initial != db->mdb_initial.end()) {
                auto it = work.msw_nodes.find(name);
                if (it == work.msw_nodes.end() ||
                    !ml_same_value(it->second.get(), initial->second.get())) {
                    err = ml_work_store(&work, name, initial->second.get());
                    bail_error(err);
                }
            } else {
                err = ml_work_delete(&work, name, &found);
                bail_error(err);
                if (!found) {
                    *ret_code = lc_err_not_found;
                    *ret_msg = "no node " + name + " to reset";
                }
            }
            break;
        }
        default:
            *ret_code = lc_err_unexpected_case;
            *ret_msg = "set operation " + std::to_string(static_cast<int>(subop)) +
                       " is not supported (" + name + ")";
            break;
        }
    }

    if (*ret_code == 0) {
        db->mdb_nodes.swap(work.msw_nodes);
        for (ml_change &change : work.msw_changes) {
            ret_changes->push_back(std::move(change));
        }
    }

bail:
    return err;
}
