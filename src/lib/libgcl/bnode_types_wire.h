// The wire form of one attribute, and the per-type functions that write an attribute into
// a frame and read it back.
//
// Every attribute opens with five big-endian uint32 words: encoding, attribute id, type,
// type flags, and a length.  A fixed type (encoding 1, or 2 for bt_macaddr802) has its
// fixed size in the length word, followed by that many value bytes.  A variable type
// (encoding 4) is followed by its bytes, the length word being the counted string's own
// length.  The readers below peek at the words of an attribute without consuming it.
//
// The readers are the first code to meet bytes from another process: every field is
// checked against what the frame holds, and an attribute id beyond the table's range is
// refused before anything is sized by it.
#pragma once

#include "bnode_types.h"
#include "common.h"
#include "tbuffer.h"

// Bytes in front of every attribute's value: encoding, id, type, flags, length.
static constexpr uint32 bn_attrib_wire_header_bytes = 20;

// Places of the header words within an attribute.
static constexpr uint32 bn_attrib_wire_encoding_offset = 0;
static constexpr uint32 bn_attrib_wire_attrib_id_offset = 4;
static constexpr uint32 bn_attrib_wire_type_offset = 8;
static constexpr uint32 bn_attrib_wire_type_flags_offset = 12;
static constexpr uint32 bn_attrib_wire_length_offset = 16;

// An attribute read from a frame lands in the table slot of its own id.  A lone attribute
// of an id below bn_attrib_wire_max_slots sizes its table exactly; ids we don't know are
// kept in their slots like any other.  Ids from bn_attrib_wire_max_id on are refused: a
// slot per id would let a peer make us allocate gigabytes for one binding.
static constexpr uint32 bn_attrib_wire_max_slots = 132;
static constexpr uint32 bn_attrib_wire_max_id = 65535;

// Reads the attribute at offset of frame as a value of expected_type (the type under which
// the function was looked up) into a new attribute; *ret_offset_incr receives the bytes
// used.  On failure *ret_attrib is null.
typedef int (*bn_attrib_copyin_func)(const tbuf *frame, uint32 offset, bn_type expected_type,
                                     bn_attrib **ret_attrib, uint32 *ret_offset_incr);
// Appends attrib, which must be of expected_type, to the end of frame; *ret_offset_incr
// receives the bytes written.  A failure may leave a partial attribute at the end.
typedef int (*bn_attrib_copyout_func)(const bn_attrib *attrib, bn_type expected_type,
                                      tbuf *frame, uint32 *ret_offset_incr);

struct bn_attrib_copy_record {
    bn_attrib_copyin_func bacr_in_func;
    bn_attrib_copyout_func bacr_out_func;
};

// Indexed by type id; the rows of ids that are no type, and of bt_any, are empty.
extern const bn_attrib_copy_record bn_attrib_copy_funcs[bt_LAST];

// The fixed types: encoding 1 or 2 and the value bytes of the type's fixed size.
int bn_attrib_copyin_numeric(const tbuf *frame, uint32 offset, bn_type expected_type,
                             bn_attrib **ret_attrib, uint32 *ret_offset_incr);
int bn_attrib_copyout_numeric(const bn_attrib *attrib, bn_type expected_type, tbuf *frame,
                              uint32 *ret_offset_incr);
// The ten string types: encoding 4 and a counted string.  A null tstring is written with
// length 0 and reads back as an empty one.
int bn_attrib_copyin_tstring(const tbuf *frame, uint32 offset, bn_type expected_type,
                             bn_attrib **ret_attrib, uint32 *ret_offset_incr);
int bn_attrib_copyout_tstring(const bn_attrib *attrib, bn_type expected_type, tbuf *frame,
                              uint32 *ret_offset_incr);
// bt_binary: encoding 4 and the buffer's bytes counted like a string.
int bn_attrib_copyin_tbuf(const tbuf *frame, uint32 offset, bn_type expected_type,
                          bn_attrib **ret_attrib, uint32 *ret_offset_incr);
int bn_attrib_copyout_tbuf(const bn_attrib *attrib, bn_type expected_type, tbuf *frame,
                           uint32 *ret_offset_incr);

// The size on the wire of an attribute of a fixed type: its fixed size plus the 20 header
// bytes.  Errors are those of bn_type_fixed_size.
int bn_attrib_fixed_size(bn_type type, bn_type_flags_bf type_flags, uint32 *ret_num_bytes);

// Peek at the header words of the attribute at offset.  The words are handed out as they
// stand on the wire, unchecked; a frame too short for the word gives
// lc_err_no_buffer_space.  Any output of bn_type_extract_btype may be null.
int bn_type_extract_attrib_id(const tbuf *frame, uint32 offset, uint32 *ret_attrib_id);
int bn_type_extract_btype(const tbuf *frame, uint32 offset, uint32 *ret_btype,
                          uint32 *ret_type_flags);
// The length word; for a fixed type the attribute's whole size is this plus 20.
int bn_type_extract_attrib_len(const tbuf *frame, uint32 offset, uint32 *ret_attrib_len);
