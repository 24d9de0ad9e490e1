// Responses of HTTP digest authentication, RFC 2617.
#include "lib/hash.h"

str stored_digest_response(str const& ha1, str const& method, str const& uri, str const& nonce,
                           str const& nonce_count, str const& client_nonce, str const& qop) {
    str const ha2 = auth_md5(method + ":" + uri);
    if (qop.empty()) {
        return auth_md5(str::sprintf("%s:%s:%s", ha1, nonce, ha2));
    }
    return auth_md5(
        str::sprintf("%s:%s:%s:%s:%s:%s", ha1, nonce, nonce_count, client_nonce, qop, ha2));
}

str digest_response(str const& user, str const& realm, str const& user_secret, str const& method,
                    str const& uri, str const& nonce, str const& nonce_count,
                    str const& client_nonce, str const& qop) {
    str const ha1 = auth_md5(str::sprintf("%s:%s:%s", user, realm, user_secret));
    return stored_digest_response(ha1, method, uri, nonce, nonce_count, client_nonce, qop);
}
