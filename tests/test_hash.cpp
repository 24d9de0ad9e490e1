#include "sim/sim.h"

#include "lib/hash.h"
#include "lib/utils.h"
#ifdef TEST_WITH_OPENSSL
#include <openssl/evp.h>
#endif

using hash_test = sim::test;

TEST_F(hash_test, results_are_as_published_or_intended) {
    str const nonce = "dcd98b7102dd2f0e8b11d0f600bfb0c093";  // RFC 2617, 3.5
    for (auto const& [result, expected] : sim::table<str, char const*>{
             {auth_md4_bin("message digest"), "d9130a8164549fe818874806e1c7014b"},
             {auth_md5_bin("message digest"), "f96b697d7cb7938d525a2f31aaf161d0"},
             {auth_sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d"},
             {hmac_md5(str('\x0b', 16), "Hi There"), "9294727a3638bb1c13f48ef8158bfc9d"},
             {hmac_sha(str('\x0b', 20), "Hi There"), "b617318655057264e28bc0b6fb378c8ef146be00"},
             // Longer keys stay whole, and so does the output of the expansion.
             {hmac_md5(str('k', 65), "data"), "4ef629de196713763c5f982b75a4f1ae"},
             {expand_md5("secret", "seed", 20).rightstr(16), "eac6e2223ca4a9915782540ad32e4827"},
             {expand_sha("secret", "seed", 20), "5d55432bdfe9b93a813acc932adf0f297815d1c8"},
             {utils::hex2bin(digest_response("Mufasa", "testrealm@host.com", "Circle Of Life",
                                             "GET", "/dir/index.html", nonce,
                                             {"00000001", "0a4f113b", "auth"})),
              "6629fae49393a05397450978507c4ef1"},
             {utils::hex2bin(digest_response("Mufasa", "testrealm@host.com", "Circle Of Life",
                                             "GET", "/dir/index.html", nonce)),
              "670fd8c2df070c60b045671b8b24ff02"}}) {
        EXPECT_EQ(utils::bin2hex(result, false), expected);
    }
}

#ifdef TEST_WITH_OPENSSL
TEST_F(hash_test, openssl_agrees_on_every_length_and_on_pieces) {
    for (size_t length = 0; length < 700; ++length) {
        str const message = utils::generate_randstr(int(length));
        str digests('\0', 36);
        unsigned char* const out = digests.buffer();
        EVP_Q_digest(nullptr, "MD5", nullptr, message.cbuffer(), length, out, nullptr);
        EVP_Q_digest(nullptr, "SHA1", nullptr, message.cbuffer(), length, out + 16, nullptr);
        md5 pieces;
        pieces.update(message.leftstr(int(length) / 3));
        pieces.update(message.substr(int(length) / 3));
        ASSERT_EQ(pieces.final_bin() + auth_sha1(message), digests) << length;
    }
}
#endif
