// Texts and values of a port's forward error correction.
#include "sa_fec.h"

#include <iterator>
#include <string_view>

#include "logging.h"

namespace {

struct fec_mode_row {
    uint32 mode;
    const char *text;
};

// The first row is the one mode that means no FEC.
constexpr fec_mode_row fec_mode_rows[] = {
    {1, "No FEC"},
    {2, "Firecode FEC"},
    {4, "Standard RS FEC"},
    {8, "Standard LL RS FEC"},
    {16, "Halvorin Strong RS FEC"},
    {32, "Halvorin LL RS FEC"},
};

}  // namespace

int sa_port_prm_fec_to_tstr(tstring **ret_ts, uint32 fec_mode_active)
{
    int err = 0;
    const char *text = "N/A";

    bail_null(ret_ts);
    bail_require(*ret_ts == nullptr);
    for (const fec_mode_row &row : fec_mode_rows) {
        if (row.mode == fec_mode_active) {
            text = row.text;
        }
    }
    err = ts_new_str(ret_ts, text);
    bail_error(err);

bail:
    return err;
}

int get_fec_val(const char *fec, uint8 *fec_val)
{
    int err = 0;
    std::string_view text;
    bool is_mode_text = false;

    bail_null(fec);
    bail_null(fec_val);
    *fec_val = 0;
    text = fec;
    // Every mode text but the first ("No FEC") means FEC on.
    for (size_t i = 1; i < std::size(fec_mode_rows); ++i) {
        if (text == fec_mode_rows[i].text) {
            is_mode_text = true;
        }
    }
    if (text == "auto") {
        *fec_val = 0;
    } else if (text == "no-fec" || text == fec_mode_rows[0].text) {
        *fec_val = 1;
    } else if (text == "fec-on" || is_mode_text) {
        *fec_val = 2;
    } else {
        lc_log_basic(LOG_WARNING, "%s: Illegal fec value %s ", __func__, fec);
        err = lc_err_unexpected_case;
        bail_error(err);
    }

bail:
    return err;
}
