#include "sim/sim.h"

#include "lib/hash.h"
#include "lib/utils.h"

using hash_test = sim::test;

TEST_F(hash_test, results_are_as_published_or_intended) {
    str md4s, md5s, sha1s;  // Each digest begins the next message, up to three blocks.
    for (int n = 0; n < 200; ++n) {
        str const rest(static_cast<unsigned char>(n), n);
        md5 pieces;
        pieces.update(md5s);
        pieces.update(rest);
        md4s = auth_md4_bin(md4s + rest);
        md5s = pieces.final_bin();
        sha1s = auth_sha1(sha1s + rest);
    }
    str const nonce = "dcd98b7102dd2f0e8b11d0f600bfb0c093";  // RFC 2617, 3.5
    for (auto const& [result, expected] : sim::table<str, char const*>{
             {md4s, "1266b9e2d645cd00348e271b25f062aa"},
             {md5s, "fbb31a09b7ac7045207fbd4848bae230"},
             {sha1s, "ce8236f59baeef0e099ba99971be9a76f520e142"},
             {hmac_sha(str('\x0b', 20), "Hi There"), "b617318655057264e28bc0b6fb378c8ef146be00"},
             // Longer keys stay whole, and so does the output of the expansion.
             {hmac_md5(str('k', 65), "data"), "4ef629de196713763c5f982b75a4f1ae"},
             {expand_md5("secret", "seed", 20).rightstr(16), "eac6e2223ca4a9915782540ad32e4827"},
             {expand_sha("secret", "seed", 20), "5d55432bdfe9b93a813acc932adf0f297815d1c8"},
             {utils::hex2bin(digest_response("Mufasa", "testrealm@host.com", "Circle Of Life",
                                             "GET", "/dir/index.html", nonce,
                                             {"00000001", "0a4f113b", "auth"})),
              "6629fae49393a05397450978507c4ef1"}}) {
        EXPECT_EQ(utils::bin2hex(result, false), expected);
    }
}
