/// A phone made of scripted functions, for tests of everything above the device functions.
///
///     FakeMobileDevice fake;                       // one healthy phone on firmware 1.1.1
///     fake.phone().firmware("1.0.2").file("/iTunes_Control/Ringtones/ABCD.m4r", "bytes");
///     fake.failNth("AFCRemovePath", 2, kAFCPermissionDenied);
///     ...
///     EXPECT_THAT(fake.calls(), ElementsAre("AMDeviceConnect", "AMDeviceIsPaired", ...));
///
/// While it lives, every function variable of MobileDevice.h leads here; afterwards they are null
/// again. One at a time. Not synchronised: as with a phone, one thread at a time.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <MobileDevice/MobileDevice.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace krl::test {

/// Statuses of the fake's own, for calls that a phone could not carry out. Calls of the file
/// service are answered with the kAFC… statuses instead.
enum FakeStatus : int32_t {
    kFakeNotPaired = -21,       ///< the pairing does not hold, or was not validated yet
    kFakeSessionActive = -22,   ///< a second session on one connection
    kFakeSessionInactive = -23, ///< a service, or the end of a session, without one
    kFakeBadHandle = -201,      ///< null, unknown or used-up handle
    kFakeNotConnected = -202    ///< no connection, or the phone is pulled out
};

/// A pair as AFCKeyValueRead gives it; a missing half is given as a null string.
struct InfoPair {
    std::optional<std::string> key;
    std::optional<std::string> value;
};

using InfoPairs = std::vector<InfoPair>;

/// What is on one phone and how it answers. The setters return the phone, so that they chain.
/// Starts with the directories "/iTunes_Control/iTunes" and "/DCIM", and with the values
/// DeviceName, DeviceClass, ProductVersion and UniqueDeviceID.
class FakePhone {
public:
    explicit FakePhone(std::string label);
    FakePhone(const FakePhone&) = delete;
    FakePhone& operator=(const FakePhone&) = delete;

    /// The handle to hand to the code under test.
    am_device* device() { return reinterpret_cast<am_device*>(this); }

    /// References that clients hold on the device: AMDeviceRetain less AMDeviceRelease.
    int references() const { return references_; }

    bool isConnected() const { return connected_; }

    bool isInSession() const { return inSession_; }

    FakePhone& firmware(std::string_view version) { return value("ProductVersion", version); }

    FakePhone& name(std::string_view text) { return value("DeviceName", text); }

    FakePhone& deviceClass(std::string_view text) { return value("DeviceClass", text); }

    /// A device value of the default domain (domain "") or another one.
    FakePhone& value(const std::string& key, std::string_view text);
    FakePhone& value(const std::string& domain, const std::string& key, CFTypeRef object);
    FakePhone& withoutValue(const std::string& key, const std::string& domain = "");
    FakePhone& withoutDomain(const std::string& domain);

    FakePhone& paired(bool isPaired);
    /// What AMDeviceIsPaired answers; the phone is paired unless it is 0.
    FakePhone& pairedAnswer(int32_t answer);
    /// Another one holds the lock of this file: AFCFileRefLock answers kAFCWouldBlock.
    FakePhone& lockHeldElsewhere(const std::string& path, bool held = true);
    FakePhone& freeSpace(uint64_t bytes);
    /// The whole answer of AFCDeviceInfoOpen.
    FakePhone& deviceInfo(InfoPairs pairs);
    /// The whole answer of AFCFileInfoOpen for one path.
    FakePhone& fileInfo(const std::string& path, InfoPairs pairs);
    /// AFCFileRefRead gives at most this many bytes a call.
    FakePhone& readAtMost(uint32_t bytes);

    /// Puts a file there, with its parent directories. Any bytes may stand in the path.
    FakePhone& file(const std::string& path, std::string contents = {});
    FakePhone& directory(const std::string& path);
    FakePhone& remove(const std::string& path);

    bool hasFile(const std::string& path) const;
    bool hasDirectory(const std::string& path) const;
    /// Throws std::out_of_range when there is no such file.
    const std::string& contents(const std::string& path) const;
    /// Names in a directory in order of creation, as the phone lists them; without "." and "..".
    std::vector<std::string> names(const std::string& directory) const;

    /// Whether an open file on this phone holds the lock of this path.
    bool isLocked(const std::string& path) const { return lockHolders_.count(path) != 0; }

private:
    friend class FakeMobileDevice;
    friend struct FakeFunctions;

    struct Node {
        bool isDirectory;
        uint64_t serial;
        std::string contents;
    };

    using Values = std::vector<std::pair<std::string, cf::CFRef<CFTypeRef>>>;

    Node* find(const std::string& path);
    const Node* find(const std::string& path) const;
    bool hasParent(const std::string& path) const;
    void add(const std::string& path, bool isDirectory, std::string contents);
    void rename(const std::string& from, const std::string& to);
    bool isEmptyDirectory(const std::string& path) const;
    CFTypeRef copyValue(const std::string& domain, CFStringRef key) const;

    std::string label_;
    int references_ = 0;
    bool reachable_ = true;
    bool isWaiting_ = false; // attached before there was a subscriber
    bool connected_ = false;
    bool inSession_ = false;
    bool validated_ = false;
    int32_t pairedAnswer_ = 1;
    uint32_t readAtMost_ = UINT32_MAX;
    uint64_t nextSerial_ = 1;
    std::map<std::string, Node> nodes_;
    std::map<std::string, Values> domains_;
    std::map<std::string, InfoPairs> fileInfo_;
    InfoPairs deviceInfo_;
    std::map<std::string, bool> heldElsewhere_;
    std::map<std::string, uint64_t> lockHolders_;
};

/// Handles that the code under test has taken and not given back.
struct LiveHandles {
    int fileConnections = 0;
    int files = 0;
    int directories = 0;
    int keyValues = 0;
    int proxies = 0;
    int subscriptions = 0;
};

class FakeMobileDevice {
public:
    FakeMobileDevice();
    ~FakeMobileDevice();
    FakeMobileDevice(const FakeMobileDevice&) = delete;
    FakeMobileDevice& operator=(const FakeMobileDevice&) = delete;

    /// Leads every function variable here again, after a test has led some elsewhere.
    void fill();

    /// The first phone, which is always there.
    FakePhone& phone();
    /// One more phone; its calls are recorded with " [label]" behind them.
    FakePhone& addPhone(const std::string& label);

    // ---------------------------------------------------------------- arrivals and removals

    /// Plugs the phone in and tells the subscribers, on this thread, before returning. Without a
    /// subscriber the arrival waits for deliverArrivals.
    void attach(FakePhone& phone);

    void attach() { attach(phone()); }

    /// Pulls the phone out, so that all calls for it fail, and tells the subscribers.
    void detach(FakePhone& phone);

    void detach() { detach(phone()); }

    /// Pulls the phone out and tells nobody yet.
    void pull(FakePhone& phone);
    /// Tells the subscribers of the phones that were attached before they subscribed.
    void deliverArrivals();
    /// Sends the subscribers any message.
    void notify(FakePhone& phone, uint32_t message);

    // ---------------------------------------------------------------- faults
    //
    // A failing call returns the status and does nothing else; a failing close closes all the same.
    // AMDeviceIsPaired fails by answering 0, AMDeviceCopyValue by answering null. Calls are counted
    // from the call that asks for the fault. Names that no function has throw
    // std::invalid_argument. AMDeviceRetain, AMDeviceRelease and AMDeviceSetCallTimeout cannot
    // fail.

    void fail(std::string_view function, int32_t status) { failFrom(function, 1, status); }

    void failNth(std::string_view function, int n, int32_t status);
    void failFirst(std::string_view function, int count, int32_t status);
    void failFrom(std::string_view function, int n, int32_t status);
    /// The n-th call of any function that can fail, once; for sweeps.
    void failNthCall(int n, int32_t status);
    /// The n-th call of any function that can fail, and all calls after it.
    void failFromCall(int n, int32_t status);
    void clearFaults();

    /// How many calls were made to fail by the faults above.
    int faultsMet() const { return faultsMet_; }

    // ---------------------------------------------------------------- what was called

    /// One line a call, in order: the function's name and its arguments, for example
    ///   "AMDeviceStartService com.apple.afc", "AMDeviceCopyValue com.apple.mobile.iTunes *",
    ///   "AMDPostNotification com.apple.itunes-mobdev.syncWillStart",
    ///   "AMDShutdownNotificationProxy proxy" (or "subscription"),
    ///   "AFCConnectionOpen", "AFCConnectionClose 1" (connections are numbered as they are opened),
    ///   "AFCFileRefOpen /path 3", "AFCFileRefWrite 1 4194304" (files likewise), "AFCRenamePath /a
    ///   /b".
    /// The default domain and all keys are "*". A handle that is null, used up or unknown is
    /// "null", "closed 2" or "unknown"; the file connection is only mentioned in that case, at the
    /// end: "AFCFileRefUnlock 1 (null connection)". So are arguments that are to be 0 or null:
    /// "AFCConnectionOpen (timeout 5)", "AMDeviceStartService com.apple.afc (unused argument)",
    /// "AMDPostNotification name (user information)".
    const std::vector<std::string>& calls() const { return calls_; }

    /// The calls whose line begins with one of these names, whole words.
    std::vector<std::string> callsOf(std::initializer_list<std::string_view> functions) const;

    std::vector<std::string> callsOf(std::string_view function) const {
        return callsOf({function});
    }

    int countOf(std::string_view function) const {
        return static_cast<int>(callsOf(function).size());
    }

    void clearCalls() { calls_.clear(); }

    /// Called for each line, before the call is carried out; to look at, or change, the world
    /// there.
    void onCall(std::function<void(const std::string& line)> observer) {
        observer_ = std::move(observer);
    }

    /// The buffers that AFCFileRefWrite was given, in order.
    struct Write {
        const void* bytes;
        uint32_t count;
    };

    const std::vector<Write>& writes() const { return writes_; }

    LiveHandles live() const;

    /// Closes of a handle that was closed before (null ones not counted).
    int doubleCloses() const { return doubleCloses_; }

private:
    friend struct FakeFunctions;
    struct State;

    struct Fault {
        std::string function; // empty: any
        int first;
        int last;
        int32_t status;
        int seen;
    };

    void addFault(std::string_view function, int first, int last, int32_t status);

    std::unique_ptr<State> state_;
    std::vector<Fault> faults_;
    int faultsMet_ = 0;
    int doubleCloses_ = 0;
    std::vector<std::string> calls_;
    std::vector<Write> writes_;
    std::function<void(const std::string& line)> observer_;
};

} // namespace krl::test
