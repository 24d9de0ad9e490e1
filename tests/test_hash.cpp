#include "sim/sim.h"

#include "lib/hash.h"
#include "lib/utils.h"
#ifdef TEST_WITH_OPENSSL
#include <openssl/evp.h>
#include <openssl/provider.h>
#endif

using namespace sim;

namespace {

class hash_test : public sim::test {};

template<class incremental>
str in_pieces(str const& message, int first, int second) {
    incremental digest;
    digest.update(message.leftstr(first));
    digest.update(message.substr(first, second - first));
    digest.update(message.substr(second));
    return digest.final_bin();
}

// Of the digests of 0 to 130 bytes, which end in every possible way.
str digest_of_digests(str (*digest)(str const&)) {
    str all;
    for (int length = 0; length <= 130; ++length) {
        all += digest(str('a', length));
    }
    return digest(all);
}

}  // namespace

TEST_F(hash_test, results_are_as_published_or_intended) {
    for (auto const& [result, expected] : table<str, char const*>{
             {auth_md5_bin("message digest"), "f96b697d7cb7938d525a2f31aaf161d0"},  // RFC 1321, A.5
             {digest_of_digests(auth_md5_bin), "714e67f3fc9e8a62eaf3f30c0329a554"},
             {auth_md4_bin("message digest"), "d9130a8164549fe818874806e1c7014b"},  // RFC 1320, A.5
             {digest_of_digests(auth_md4_bin), "6b1ba2fdcf9d0ac07e64d72e5686a8ef"},
             {auth_sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d"},  // FIPS 180
             {auth_sha1(str('a', 1000000)), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
             {digest_of_digests(auth_sha1), "60afa284c7b19b978fd27334fd33aa6e654cf3ff"},
             {hmac_md5(str('\x0b', 16), "Hi There"), "9294727a3638bb1c13f48ef8158bfc9d"},
             {hmac_sha(str('\x0b', 20), "Hi There"), "b617318655057264e28bc0b6fb378c8ef146be00"},
             {hmac_md5(str('k', 64), "data"), "e0525f930df7e5415f8beed9da4e1f3c"},
             // Longer keys stay whole, and so does the output of the expansion.
             {hmac_md5(str('k', 65), "data"), "4ef629de196713763c5f982b75a4f1ae"},
             {hmac_sha(str('k', 65), "data"), "866ce88470e3acea9288f5aff07b263e74a7a013"},
             {expand_md5("secret", "seed", 20),
              "d31afcaad854fb2a6fdb1442f7495af2eac6e2223ca4a9915782540ad32e4827"},
             {expand_sha("secret", "seed", 20), "5d55432bdfe9b93a813acc932adf0f297815d1c8"}}) {
        EXPECT_EQ(utils::bin2hex(result, false), expected);
    }
}

TEST_F(hash_test, pieces_make_the_whole) {
    for (int const length : {55, 56, 63, 64, 65, 119, 120, 129}) {
        str const message = expand_md5("key", "seed", 129).leftstr(length);
        for (int cut = 0; cut < length * length; ++cut) {
            int const second = cut / length + 1;
            int const first = cut % length * second / length;
            ASSERT_EQ(in_pieces<md5>(message, first, second), auth_md5_bin(message)) << cut;
            ASSERT_EQ(in_pieces<md4>(message, first, second), auth_md4_bin(message)) << cut;
        }
    }
}

TEST_F(hash_test, texts_and_http_responses) {
    EXPECT_EQ(md5().final(), "d41d8cd98f00b204e9800998ecf8427e");
    str const nonce = "dcd98b7102dd2f0e8b11d0f600bfb0c093";  // RFC 2617, 3.5
    EXPECT_EQ(digest_response("Mufasa", "testrealm@host.com", "Circle Of Life", "GET",
                              "/dir/index.html", nonce, {"00000001", "0a4f113b", "auth"}),
              "6629fae49393a05397450978507c4ef1");
    EXPECT_EQ(
        stored_digest_response("939e7578ed9e3c518a452acee763bce9", "GET", "/dir/index.html", nonce),
        "670fd8c2df070c60b045671b8b24ff02");
}

#ifdef TEST_WITH_OPENSSL
TEST_F(hash_test, openssl_agrees) {
    OSSL_PROVIDER* const legacy = OSSL_PROVIDER_try_load(nullptr, "legacy", 1);  // has MD4
    auto const by_openssl = [](char const* name, str const& data) {
        str out('\0', name == str("SHA1") ? 20 : 16);
        EVP_Q_digest(nullptr, name, nullptr, data.cbuffer(), data.length(), out.buffer(), nullptr);
        return out;
    };
    srand(1);
    for (int i = 0; i < 3000; ++i) {
        str const message = utils::generate_randstr(rand() % 700);
        int const cut = rand() % (message.length() + 1);
        ASSERT_EQ(auth_sha1(message), by_openssl("SHA1", message)) << i;
        ASSERT_EQ(in_pieces<md5>(message, cut / 2, cut), by_openssl("MD5", message)) << i;
        if (legacy) {
            ASSERT_EQ(in_pieces<md4>(message, cut / 2, cut), by_openssl("MD4", message)) << i;
        }
    }
    OSSL_PROVIDER_unload(legacy);
}
#endif
