/**
 * @file
 * Whether the support plug-in is running inside the desktop media library, and recent enough. It is
 * asked by a distributed notification, to which it answers with another one that carries its
 * version.
 */
#ifndef KRLVESK_KRTPLUGINVALIDATOR_H
#define KRLVESK_KRTPLUGINVALIDATOR_H

#include <KRLVesk/KRLBase.h>

KRL_BEGIN_C

/**
 * Asks the plug-in, and runs this thread's run loop for 6 seconds, always. Whatever else comes on
 * that run loop is handled within the call, phones and their delegates included.
 *
 * @return whether a plug-in answered with a version above 2.01. Its version is taken as a number of
 *         single precision, so that 2.01 itself is not enough. False too without a session bus.
 */
KRL_EXPORT bool KRTValidatePlugin(void);

KRL_END_C

/* ------------------------------------------------------------------ the object */

#ifdef __cplusplus

#include <CoreFoundation/CFRef.h>

#include <memory>

/** One question to the plug-in. */
class KRL_EXPORT KRTPluginValidator final {
public:
    /** A new validator. */
    static std::shared_ptr<KRTPluginValidator> validator();

    /** A new validator. */
    static std::shared_ptr<KRTPluginValidator> init();

    KRTPluginValidator(const KRTPluginValidator&) = delete;
    KRTPluginValidator& operator=(const KRTPluginValidator&) = delete;

    /** Asks as KRTValidatePlugin does. Once the answer was true, it stays true. */
    bool isValid();

    /**
     * Handles an answer.
     * @param userInfo  what the answer carries; null, or without "version": version 1.0. A version
     *                  is a string or a number.
     */
    void _pongSeen(CFDictionaryRef userInfo);

private:
    KRL_PRIVATE KRTPluginValidator();

    bool _valid;
};

/** What is added to strings. */
class KRL_EXPORT NSStringUUIDAdditions final {
public:
    NSStringUUIDAdditions() = delete;

    /** 12 hexadecimal digits in upper case, new each time: the first two groups of a new UUID. */
    static krl::cf::CFRef<CFStringRef> generateUUIDString();
};

#endif

#endif
