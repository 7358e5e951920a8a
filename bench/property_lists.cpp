// Reading and writing a catalogue against libplist alone.

#include "bench/Comparison.h"

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>
#include <plist/plist.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace bench {
namespace {

std::string catalogueText(int count) {
    std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
        "<key>Ringtones</key>\n<dict>\n";
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        text += "<key>N" + number + ".m4r</key>\n<dict>\n<key>GUID</key>\n<string>GUID-" + number +
                "</string>\n<key>LocalPath</key>\n<string>/home/me/tones/" + number +
                ".m4r</string>\n<key>Name</key>\n<string>Ringtone " + number +
                "</string>\n</dict>\n";
    }
    return text + "</dict>\n</dict>\n</plist>\n";
}

krl::cf::CFRef<CFPropertyListRef> readOurs(const std::string& text) {
    const auto data = krl::cf::adopt(
        CFDataCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8*>(text.data()),
                                    static_cast<CFIndex>(text.size()), kCFAllocatorNull));
    return krl::cf::adopt(CFPropertyListCreateFromXMLData(
        nullptr, data.get(), kCFPropertyListMutableContainersAndLeaves, nullptr));
}

plist_t readPeer(const std::string& text) {
    plist_t tree = nullptr;
    plist_from_xml(text.data(), static_cast<uint32_t>(text.size()), &tree);
    return tree;
}

void compareReading(const std::shared_ptr<std::string>& text, const std::string& count) {
    compare({.title = "catalogue read, " + count,
             .ours =
                 [text](benchmark::State& state) {
                     for (auto _ : state) {
                         if (!readOurs(*text)) {
                             state.SkipWithError("the catalogue was not read");
                             return;
                         }
                     }
                 },
             .peer =
                 [text](benchmark::State& state) {
                     for (auto _ : state) {
                         plist_free(readPeer(*text));
                     }
                 }},
            "XML to objects; peer libplist alone, XML to its tree");
}

void compareWriting(const std::shared_ptr<std::string>& text, const std::string& count) {
    const auto tree = std::make_shared<krl::cf::CFRef<CFPropertyListRef>>(readOurs(*text));
    const std::shared_ptr<void> peerTree(readPeer(*text), plist_free);
    compare({.title = "catalogue write, " + count,
             .ours =
                 [tree](benchmark::State& state) {
                     for (auto _ : state) {
                         const auto data =
                             krl::cf::adopt(CFPropertyListCreateXMLData(nullptr, tree->get()));
                         benchmark::DoNotOptimize(data.get());
                     }
                 },
             .peer =
                 [peerTree](benchmark::State& state) {
                     for (auto _ : state) {
                         char* written = nullptr;
                         uint32_t length = 0;
                         plist_to_xml(peerTree.get(), &written, &length);
                         benchmark::DoNotOptimize(written);
                         std::free(written);
                     }
                 }},
            "objects to XML; peer libplist alone");
}

} // namespace

void registerPropertyLists() {
    for (const int count : {100, 10000}) {
        const auto text = std::make_shared<std::string>(catalogueText(count));
        compareReading(text, std::to_string(count));
        compareWriting(text, std::to_string(count));
    }
}

} // namespace bench
