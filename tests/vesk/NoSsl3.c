/* Laid before NSS by the loader, it makes an NSS that does not speak SSL 3.0 any more. */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <prerror.h>
#include <ssl.h>
#include <sslerr.h>
#include <sslproto.h>

__attribute__((visibility("default"))) SECStatus SSL_VersionRangeSet(PRFileDesc* descriptor,
                                                                     const SSLVersionRange* range) {
    typedef SECStatus (*Function)(PRFileDesc*, const SSLVersionRange*);
    if (range->min < SSL_LIBRARY_VERSION_TLS_1_0) {
        PR_SetError(SSL_ERROR_INVALID_VERSION_RANGE, 0);
        return SECFailure;
    }
    Function real = NULL;
    *(void**)&real = dlsym(RTLD_NEXT, "SSL_VersionRangeSet");
    return real(descriptor, range);
}
