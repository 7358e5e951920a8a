#include <KRLVesk/KRLException.h>

#include <utility>

KRLException::KRLException(std::string name, std::string reason)
    : name_(std::move(name)), reason_(std::move(reason)) {}

KRLException::KRLException(const KRLException&) = default;

KRLException& KRLException::operator=(const KRLException&) = default;

KRLException::~KRLException() = default;

const std::string& KRLException::name() const noexcept {
    return name_;
}

const std::string& KRLException::reason() const noexcept {
    return reason_;
}

const char* KRLException::what() const noexcept {
    return reason_.c_str();
}
