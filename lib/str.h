// The one string and byte-buffer type of the daemon.
//
// A str holds any run of bytes, zero bytes included: text, packets and binary addresses alike.
// Copies and cut-outs share one block of storage; the values that share a block form a ring, and
// every write first gives the writer a block of its own (copy on write). Blocks come from a pool
// of fixed size classes, which also serves operator new[] and the nodes of the containers.
//
// Invariants:
// 1. 0 <= start <= end <= capacity of the block; without a block both are 0.
// 2. All values of one ring have the same block; their views may lie anywhere in it.
// 3. The bytes of a block that two or more values share never change.
//
// Positions count from 0 at the first byte. Reading past the end yields 0 or an empty value.
#pragma once

#include "lib/pool_poison.h"

#include <cstdint>
#include <cstring>

struct format_arguments;

class str {
public:
    struct reference;

    // A class of the block pool. Only `size` is initialised; four spare entries have size 0.
    struct block_class {
        int size;                        // bytes of data in one block
        reference* free_list = nullptr;  // blocks ready for use
        int carved = 0;                  // blocks ever obtained from the system
    };

    constexpr str() : next(this), prev(this) {}
    str(str const& other) : str() { linkto(other); }
    str(char const* text);                       // nullptr counts as ""
    str(unsigned char const* bytes, int count);  // nullptr: `count` bytes for the caller to fill
    str(unsigned char byte, int count);          // of that very type: an int would mean its digits
    str(char byte, int count);
    str(unsigned char a, unsigned char b);
    str(unsigned char a, unsigned char b, unsigned char c);
    str(unsigned char a, unsigned char b, unsigned char c, unsigned char d);

    // Decimal text with at least `digits` digits, 10 at most; a sign counts as a digit. A width
    // above 10 pads nothing.
    str(int value, int digits);
    str(unsigned int value, int digits);

    ~str() { cleanup(); }
    str& operator=(str const& other);

    // Lets go of the block and becomes empty.
    void cleanup();
    void clear() { cleanup(); }
    // Becomes empty without touching any block.
    void allzero() {
        ref = nullptr;
        start = end = 0;
    }
    // Consistency hook; empty in every build.
    void check() const {}

    int length() const { return end - start; }
    bool empty() const { return end == start; }
    int capacity() const { return ref ? ref->capacity : 0; }  // bytes of data in the block
    unsigned char operator[](int i) const { return i >= 0 && i < length() ? data()[i] : 0; }

    // Views of a part, clamped to the value; they share the block.
    str substr(int pos, int count) const;
    str substr(int pos) const;
    str leftstr(int count) const { return substr(0, count); }
    str rightstr(int count) const;

    // Raw access. Each pins the block: it is never moved while any value of the ring lives.
    char const* c_str();                   // zero-terminated, valid until the next change
    unsigned char const* buffer() const;   // read only, not terminated
    unsigned char const* cbuffer() const;  // the same
    unsigned char* buffer();               // for writing: takes a block of its own first

    // Sets the length of a value that is the only user of its block. Logs at level 1 and changes
    // nothing when the value shares its block or the block is too small.
    void set_length(int count);

    void append(unsigned char const* bytes, int count);
    str& operator+=(str const& other);
    str& operator+=(char const* text);
    str& operator+=(unsigned char byte);
    str& operator+=(char byte) { return *this += static_cast<unsigned char>(byte); }
    str operator+(str const& other) const;

    // Comparison, all by unsigned bytes.
    bool compare_sensitiv(unsigned char const* bytes, int count) const;
    bool compare_insensitiv(unsigned char const* bytes, int count) const;  // ASCII letters
    bool cmp(str const& other) const { return *this == other; }
    bool cmp(char const* text) const;
    bool icmp(str const& other) const;
    bool icmp(char const* text) const;
    bool operator==(str const& other) const {
        return compare_sensitiv(other.data(), other.length());
    }
    bool operator==(char const* text) const;  // a nullptr equals only the empty value
    bool operator<(str const& other) const { return three_way(other) < 0; }
    bool operator>(str const& other) const { return three_way(other) > 0; }
    // Negative, zero or positive as this value sorts before, with or behind the other.
    int three_way(str const& other) const;

    // First position of `wanted`, -1 if it does not occur; an empty value contains nothing.
    int find(str const& wanted) const;
    bool contains_char(unsigned char byte) const;
    static bool one_of(unsigned char byte, str const& set) { return set.contains_char(byte); }
    // Changes one byte; past the end the value grows by zero bytes. A negative index does nothing.
    void set_character(int i, unsigned char byte);

    // Fields: maximal runs of non-separators, counted from 0 (a negative number counts as 0). The
    // forms with a `char` compare it as a signed value with bytes of 0 to 255.
    // Intended: a separator above 0x7F never matches there. Do not make the bytes signed.
    str get_field(int n, str const& separators) const;
    str get_rest(int n, str const& separators) const;
    str get_field(int n, char separator) const;  // ends at a CR or LF, too
    str get_rest(int n, char separator) const;

    // Lines end at CR, LF, CRLF or LFCR. With `fold`, a CRLF before a blank or tab is no end.
    int first_letter_of_line(int n, bool fold) const;
    int last_letter_of_line(int n, bool fold) const;  // one past the content of line n
    str get_line(int n) const;                        // folded
    str get_first_line();                             // removes it from this value
    str remove_line(int n, bool fold) const;
    str replace_line(int n, str const& text, bool fold) const;

    // Records: lines of the form name, separator, content; names match in either letter case.
    str get_record(str const& name, str const& alt_name, char separator, str const& ws) const;
    str get_record(str const& name, char separator, str const& ws) const;
    str get_record_content(str const& name, str const& alt_name, char separator,
                           str const& ws) const;
    str get_record_content(str const& name, char separator, str const& ws) const;
    str set_record_content(str const& name, str const& alt_name, str const& content, char separator,
                           str const& spacer) const;
    str set_record_content(str const& name, str const& content, char separator,
                           str const& spacer) const;

    str strip(str const& set) const;
    str lstrip(str const& set) const;
    str rstrip(str const& set) const;
    str strip(char byte) const;
    str lstrip(char byte) const;
    str rstrip(char byte) const;

    str tolower() const;  // ASCII letters
    str toupper() const;
    str slashes() const;  // backslashes become slashes

    // Numbers at the start of the text; 0 without digits. Wrap silently in 32 bits.
    int value() const;
    unsigned int uvalue() const;
    bool is_number() const;

    // Bytewise logic, as long as the longer operand.
    // Intended: bytes beyond the shorter operand are zero, also for "or". Do not copy them.
    str l_and(str const& other) const;
    str l_or(str const& other) const;
    str l_xor(str const& other) const;
    str l_not() const;  // 1 where a byte was 0, else 0
    // XORs the first `count` bytes with `byte`; a shorter value first grows by zero bytes.
    void xor_bytes(unsigned char byte, int count);

    // Formats a text; the conversions are listed in lib/str_format.h, which callers include.
    template<class... arguments>
    static str sprintf(char const* format, arguments const&... values);
    static int const& arg_int(int const& value) { return value; }
    static str const& arg_str(str const& value) { return value; }
    // Upper-case hex; `digits` other than 0: exactly so many, zero-padded or cut on the left.
    static str hex_text(unsigned int value, int digits);
    static str decimal(long long value);  // plain, of any size

    // Whole files. Backslashes in paths count as slashes, except for remove_file. Failures are
    // logged at level 1, unless `quiet`.
    static str read_file(str const& path, bool quiet = false);  // null on failure
    bool write_file(str const& path) const;                     // creates missing directories
    // As write_file, for a file that must survive a power cut: at any moment it is the old one or
    // the new one, whole. Keeps its mode. When it fails the old file stays.
    bool replace_file(str const& path) const;
    static void create_path(str const& path);  // the directories above the last component
    static void remove_file(str const& path, bool quiet);
    // Also across file systems; the file at `to` is the old one or the new one at any time.
    static bool rename_file(str const& from, str const& to);
    static str file_type(str const& path);  // c_file, c_dir or null
    static int file_size(str const& path);  // bytes; 0 on failure
    // One entry a line, each ended by CRLF: name, or name, kind and size in the long form.
    static str list_directory(str const& path, bool long_form);

    // The pool. Sizes in bytes.
    static constexpr int header_size = 16;        // of a block, in front of its data
    static constexpr int smallest_block = 16;     // data of the first class
    static constexpr int largest_block = 262128;  // data of the last class
    static constexpr int block_class_count = 18;  // the last four are spare
    static block_class block_size[block_class_count];
    static unsigned int allocated_size;  // data ever obtained from the system
    static int large_blocks;             // blocks above the largest class, ever obtained
    // Index of the first class that holds `size` bytes, block_class_count when none does.
    static int find_bin(int size);
    static int get_bin_size(int bin) { return block_size[bin].size; }
    static reference* get_cstring_static(int size, str* owner);
    static void release_cstring(reference* block);
    // Raw memory with 16 bytes alignment (8 on 32-bit machines); `array` marks operator new[].
    static void* malloc(int size, bool array);
    static void free(void* memory);
    static str pool_statistics();

    static str const null;
    static str const lws;  // " \t\r\n"
    static str const crlf;
    static str const space;
    static str const newline;
    static str const t;  // "true"
    static str const f;  // "false"
    static str const x_00;
    static str const x_01;
    static str const x_FF;
    static str const c_file;  // "file"
    static str const c_dir;   // "dir"

    struct reference {
#if UINTPTR_MAX > 0xFFFFFFFF
        // A block is either free or owned: sharing a word keeps the header at 16 bytes.
        union {
            reference* next_free;
            str* anchor;
        };
#else
        reference* next_free;  // next block on the free list
        str* anchor;           // a member of the ring
#endif
        int capacity;  // bytes of data behind this header
        union {
            unsigned int flags;      // of a block in use
            unsigned int untouched;  // of a free one: how many behind it were never used so far
        };

        unsigned char* data() {
            return reinterpret_cast<unsigned char*>(this + 1);
        }
    };
    static_assert(sizeof(reference) == header_size);

    enum reference_flag : unsigned int {
        flag_pinned = 1,  // a raw pointer was handed out: never move the bytes
        flag_raw = 4,     // taken by str::malloc
        flag_array = 8,   // by operator new[] or a container
    };

private:
    // Whether this value is the only user of its block, which has room for `count` more bytes.
    bool has_room(int count) const;
    // Makes room for `count` more bytes, which the caller then writes, in a block of its own.
    void writable(int count);
    void extend(int count);    // in place
    void relocate(int count);  // in a new block
    void reserve(int count);
    void fill(unsigned char const* bytes, int count);
    reference* get_cstring(int size) {
        return get_cstring_static(size, this);
    }

    // Takes over the view of the other; this value must have no block.
    void linkto(str const& other);
    void add_to_list(str const& other);
    void remove_from_list();
    void compress();
    void move_to_smaller_block(int smaller);

    unsigned char* data() {
        return ref ? ref->data() + start : nullptr;
    }
    unsigned char const* data() const {
        return ref ? ref->data() + start : nullptr;
    }
    bool byte_behind_is_zero() const;

    template<class function>
    str bytewise(str const& other, function combine) const;
    static str format(char const* format, format_arguments arguments);
    void convert(char conversion, bool zero_flag, int width, format_arguments& arguments);
    void append_number(int value, bool zero_flag, int width);
    void append_hex_dump(str const& bytes, char const* digits);

    reference* ref = nullptr;  // nullptr: no block
    mutable str* next;         // ring of the values that share the block
    mutable str* prev;
    int start = 0;  // offset of the first byte in the block
    int end = 0;    // one past the last
};

#include "lib/str_inline.h"
