/**
 * @file
 * What the object interface throws, where a method says that it throws at all.
 */
#ifndef KRLVESK_KRLEXCEPTION_H
#define KRLVESK_KRLEXCEPTION_H

#include <KRLVesk/KRLBase.h>

#ifdef __cplusplus

#include <exception>
#include <string>

/** An exception with a name, by which it is told apart, and a reason for people. */
class KRL_EXPORT KRLException : public std::exception {
public:
    /** @param name, reason  UTF-8; copied */
    KRLException(std::string name, std::string reason);
    /** A copy. */
    KRLException(const KRLException&);
    /** A copy. */
    KRLException& operator=(const KRLException&);
    ~KRLException() override;

    /** By which it is told apart; lives as long as the exception. */
    const std::string& name() const noexcept;
    /** For people; lives as long as the exception. */
    const std::string& reason() const noexcept;

    /** The reason; lives as long as the exception. */
    const char* what() const noexcept override;

private:
    std::string name_;
    std::string reason_;
};

#endif

#endif
