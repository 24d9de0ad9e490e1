// Message digests over byte strings: MD5 (RFC 1321), MD4 (RFC 1320), SHA-1 (FIPS 180), HMAC of them
// (RFC 2104) and what is built on it. They serve protocols that prescribe them; none of them
// withstands a search for collisions.
//
//   digest   raw bytes   hex text
//   MD5          16          32
//   MD4          16           -
//   SHA-1        20           -
//
// Texts are lower-case hex.
#pragma once

#include "lib/str.h"

constexpr int hash_block_size = 64;  // bytes, of all three

// What MD5 and MD4 share: the padding, the length and little-endian words.
class little_endian_digest {
public:
    // Each word as four bytes, the lowest first.
    static str encode(uint32_t const* words, int count);

protected:
    // Takes one block into the four chaining words.
    using block_function = void(uint32_t* chain, unsigned char const* block);

    void append(str const& data, block_function& transform);
    str finish(block_function& transform);

    uint32_t chain[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    uint32_t bit_count[2] = {0, 0};  // of all input, the low word first
    str buffer;                      // input behind the last whole block, up to 63 bytes
};

// The sixteen words of a block.
void decode_little_endian(uint32_t* words, unsigned char const* block);

// What stands between a message, whose last block has `used` bytes, and its length of 8 bytes.
str hash_padding(int used);

// MD5 of data that comes in pieces. An object makes one digest: nothing follows final.
class md5 : public little_endian_digest {
public:
    void update(str const& data) { append(data, transform); }
    str final();
    str final_bin() { return finish(transform); }

private:
    static block_function transform;
};

// The same with MD4.
class md4 : public little_endian_digest {
public:
    void update(str const& data) { append(data, transform); }
    str final_bin() { return finish(transform); }

private:
    static block_function transform;
};

// Digests of one value.
str auth_md5(str const& data);  // hex text
str auth_md5_bin(str const& data);
str auth_md4_bin(str const& data);
str auth_sha1(str const& data);  // raw

// RFC 2104, raw; keys above 64 bytes differ from it, see hmac.cpp.
str hmac_md5(str const& key, str const& data);
str hmac_sha(str const& key, str const& data);

// P_hash of RFC 2246, 5: at least `length` bytes, in whole blocks of 16 or 20.
str expand_md5(str const& secret, str const& seed, int length);
str expand_sha(str const& secret, str const& seed, int length);

// The "response" of HTTP digest authentication (RFC 2617, 3.2.2), hex text: with a quality of
// protection, or without one as in RFC 2069.
struct digest_protection {
    str nonce_count;
    str client_nonce;
    str qop;
};
str digest_response(str const& user, str const& realm, str const& user_secret, str const& method,
                    str const& uri, str const& nonce);
str digest_response(str const& user, str const& realm, str const& user_secret, str const& method,
                    str const& uri, str const& nonce, digest_protection const& protection);
// The same from a stored HA1, which is the hex text of MD5(user ":" realm ":" user secret).
str stored_digest_response(str const& stored_ha1, str const& method, str const& uri,
                           str const& nonce);
str stored_digest_response(str const& stored_ha1, str const& method, str const& uri,
                           str const& nonce, digest_protection const& protection);
