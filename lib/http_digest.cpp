// Responses of HTTP digest authentication, RFC 2617.
#include "lib/hash.h"
#include "lib/str_format.h"

namespace {

str ha1(str const& user, str const& realm, str const& user_secret) {
    return auth_md5(str::sprintf("%s:%s:%s", user, realm, user_secret));
}

str ha2(str const& method, str const& uri) {
    return auth_md5(str::sprintf("%s:%s", method, uri));
}

}  // namespace

str stored_digest_response(str const& stored_ha1, str const& method, str const& uri,
                           str const& nonce) {
    return auth_md5(str::sprintf("%s:%s:%s", stored_ha1, nonce, ha2(method, uri)));
}

str stored_digest_response(str const& stored_ha1, str const& method, str const& uri,
                           str const& nonce, digest_protection const& protection) {
    return auth_md5(str::sprintf("%s:%s:%s:%s:%s:%s", stored_ha1, nonce, protection.nonce_count,
                                 protection.client_nonce, protection.qop, ha2(method, uri)));
}

str digest_response(str const& user, str const& realm, str const& user_secret, str const& method,
                    str const& uri, str const& nonce) {
    return stored_digest_response(ha1(user, realm, user_secret), method, uri, nonce);
}

str digest_response(str const& user, str const& realm, str const& user_secret, str const& method,
                    str const& uri, str const& nonce, digest_protection const& protection) {
    return stored_digest_response(ha1(user, realm, user_secret), method, uri, nonce, protection);
}
