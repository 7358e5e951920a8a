#include <KRLVesk/KRLFakeDict.h>

#include "library/firmware111/SlotProbe.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

using krl::objectOf;
using krl::wordOf;
using krl::cf::adopt;
using krl::cf::CFRef;

int flsl(KRTWord word) {
    return krl_flsl(word);
}

KRTUnsignedWord __KRLDictionaryScrambleHash(KRTUnsignedWord hash) {
    return __KRTDictionaryScrambleHash(hash);
}

KRTWord __KRLHashRoundUpCapacity(KRTWord n) {
    return __KRTHashRoundUpCapacity(n);
}

KRTWord __KRLHashNumBucketsForCapacity(KRTWord n) {
    return __KRTHashNumBucketsForCapacity(n);
}

namespace {

using Words = std::vector<KRTUnsignedWord>;

size_t indexOf(KRTWord slot) {
    return static_cast<size_t>(slot);
}

/// What an object answers when it is asked for a copy of itself. Null copies to null.
CFRef<CFTypeRef> copyOf(CFTypeRef object) {
    using namespace krl::cf;
    if (const auto string = cast<CFStringRef>(object)) {
        return adopt(CFStringCreateCopy(nullptr, string));
    }
    if (const auto data = cast<CFDataRef>(object)) {
        return adopt(CFDataCreateCopy(nullptr, data));
    }
    if (const auto array = cast<CFArrayRef>(object)) {
        return adopt(CFArrayCreateCopy(nullptr, array));
    }
    if (const auto dictionary = cast<CFDictionaryRef>(object)) {
        return adopt(CFDictionaryCreateCopy(nullptr, dictionary));
    }
    return retain(object);
}

KRTUnsignedWord hashOf(CFTypeRef key) {
    return key != nullptr ? CFHash(key) : 0;
}

bool areEqual(CFTypeRef key, CFTypeRef other) {
    return key == other || CFEqual(key, other);
}

/// One array of slots.
Words makeSlots(KRTWord count, KRTUnsignedWord content) {
    constexpr KRTWord kMostSlots = INTPTR_MAX / static_cast<KRTWord>(sizeof(KRTUnsignedWord));
    if (count > kMostSlots) {
        throw std::bad_alloc();
    }
    return Words(indexOf(count), content);
}

} // namespace

KRLFakeDict::KRLFakeDict() = default;

// init
std::unique_ptr<KRLFakeDict> KRLFakeDict::init() {
    return std::unique_ptr<KRLFakeDict>(new KRLFakeDict);
}

// initWithCapacity:
std::unique_ptr<KRLFakeDict> KRLFakeDict::initWithCapacity(KRTWord capacity) {
    auto dictionary = init();
    dictionary->_dg(capacity);
    return dictionary;
}

// dealloc
KRLFakeDict::~KRLFakeDict() {
    for (size_t i = 0; i < _keys.size(); ++i) {
        if (__hkv(_keys[i])) {
            CFRelease(objectOf(_keys[i]));
            CFRelease(objectOf(_values[i]));
        }
    }
}

// setObject:forKey:
void KRLFakeDict::setObject(CFTypeRef object, CFTypeRef forKey) {
    // After a rebuild that ran out of memory the slots are fewer than they are said to be.
    const bool hasSlots = !_keys.empty() && std::cmp_equal(_keys.size(), _bucketsNum);
    // Contract: a full dictionary is rebuilt before it is known whether the key is new.
    // [FakeDict.AFullDictionaryIsRebuiltBeforeAKeyIsFoundToBeThere]
    if (_bucketsUsed == _bucketsCap || !hasSlots) {
        _dg(1);
    }
    ++_mutations;
    KRTWord found = -1;
    KRTWord freeSlot = -1;
    fb(forKey, &found, &freeSlot);
    auto objectCopy = copyOf(object);
    if (found != -1) {
        const KRTUnsignedWord key = _keys[indexOf(found)];
        _keys[indexOf(found)] = ~_marker;
        // Contract: on replacing, the marker is tested against the dictionary's own address, not
        // against the key. The key is not changed, so nothing is missed.
        // [FakeDict.ReplacingReleasesTheOldValueAndKeepsTheNewOne]
        if (__hkm(wordOf(this))) {
            fNM();
        }
        _keys[indexOf(found)] = key;
        const auto oldObject = adopt(objectOf(_values[indexOf(found)]));
        _values[indexOf(found)] = wordOf(objectCopy.leak());
        return;
    }
    auto keyCopy = copyOf(forKey);
    if (__hkm(wordOf(keyCopy.get()))) {
        fNM();
    }
    if (_keys[indexOf(freeSlot)] == ~_marker) {
        --_deletes;
    }
    _keys[indexOf(freeSlot)] = wordOf(keyCopy.leak());
    _values[indexOf(freeSlot)] = wordOf(objectCopy.leak());
    ++_bucketsUsed;
    ++_count;
}

// keyEnumerator
CFRef<CFArrayRef> KRLFakeDict::keyEnumerator() const {
    auto keys = adopt(CFArrayCreateMutable(nullptr, _count, &kCFTypeArrayCallBacks));
    for (const KRTUnsignedWord key : _keys) {
        if (__hkv(key)) {
            CFArrayAppendValue(keys.get(), objectOf(key));
        }
    }
    return keys;
}

// description
CFRef<CFStringRef> KRLFakeDict::description() const {
    auto text = adopt(CFStringCreateMutable(nullptr, 0));
    for (const KRTUnsignedWord key : _keys) {
        if (__hkv(key)) {
            CFStringAppendFormat(text.get(), nullptr, CFSTR("%@\n"), objectOf(key));
        }
    }
    return text;
}

// fNM
void KRLFakeDict::fNM() {
    const KRTUnsignedWord oldMarker = _marker;
    const auto isKey = [this](KRTUnsignedWord marker) {
        return std::any_of(_keys.begin(), _keys.end(), [marker](KRTUnsignedWord key) {
            return key == marker || key == ~marker;
        });
    };
    KRTUnsignedWord marker = oldMarker;
    do {
        marker -= sizeof(KRTUnsignedWord);
    } while (isKey(marker));
    std::replace(_keys.begin(), _keys.end(), oldMarker, marker);
    std::replace(_keys.begin(), _keys.end(), ~oldMarker, ~marker);
    _marker = marker;
}

// __hkv:
bool KRLFakeDict::__hkv(KRTUnsignedWord word) const {
    return !__hkm(word);
}

// __hkm:
bool KRLFakeDict::__hkm(KRTUnsignedWord word) const {
    return word == _marker || word == ~_marker;
}

// fb:m:nom:
void KRLFakeDict::fb(CFTypeRef key, KRTWord* found, KRTWord* freeSlot) const {
    krl::Probe probe;
    if (!_keys.empty()) {
        // Unlike a KRTDictionary's: a null key is a key, the marker counts as a whole, and the
        // slots are those that there are.
        probe =
            krl::probeSlots(_keys.data(), static_cast<KRTWord>(_keys.size()), hashOf(key), _marker,
                            [key](KRTUnsignedWord word) { return areEqual(key, objectOf(word)); });
    }
    krl::storeProbe(probe, found, freeSlot);
}

// _dg:
void KRLFakeDict::_dg(KRTWord extra) {
    // Contract: the new counts stand whatever happens below.
    // [FakeDict.ThrowsOutOfMemoryWhenTheSlotsCannotBeMade]
    _bucketsCap = __KRLHashRoundUpCapacity(_bucketsUsed + extra);
    _deletes = 0;
    _bucketsNum = __KRLHashNumBucketsForCapacity(_bucketsCap);

    Words keys;
    Words values;
    try {
        // Near the end of their range the rules of capacity run over.
        if (_bucketsCap < 3 || _bucketsCap > _bucketsNum) {
            throw std::bad_alloc();
        }
        keys = makeSlots(_bucketsNum, _marker);
        values = makeSlots(_bucketsNum, 0);
    } catch (const std::bad_alloc&) {
        throw KRLException("OutOfMemory", "Couldn't allocate memory for dictionary");
    }
    keys.swap(_keys);
    values.swap(_values);
    // The old slot order decides which of two keys that meet in one slot comes first.
    bool isBroken = false;
    for (size_t i = 0; i < keys.size(); ++i) {
        if (!__hkv(keys[i])) {
            continue;
        }
        KRTWord found = -1;
        KRTWord freeSlot = -1;
        if (!isBroken) {
            fb(objectOf(keys[i]), &found, &freeSlot);
            isBroken = found != -1;
        }
        if (isBroken) {
            CFRelease(objectOf(keys[i]));
            CFRelease(objectOf(values[i]));
        } else if (freeSlot != -1) {
            _keys[indexOf(freeSlot)] = keys[i];
            _values[indexOf(freeSlot)] = values[i];
        }
    }
    if (isBroken) {
        throw KRLException("HashError", "Two values now hash to the same slot");
    }
}
