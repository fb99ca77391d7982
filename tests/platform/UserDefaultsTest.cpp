#include "DefaultsEntries.h"
#include "MainBundle.h"
#include "PropertyListReader.h"
#include "UserDefaultsStore.h"
#include "support/FaultyFileCalls.h"
#include "support/TempFolder.h"

#include <Foundation/Foundation.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using platform::UserDefaultsStore;

namespace {

NSString S(std::string_view text) {
    return NSString(text);
}

NSDictionary FileAt(const std::string& path) {
    return NSDictionary::dictionaryWithContentsOfFile(S(path));
}

NSArray List(std::initializer_list<std::string_view> texts) {
    NSMutableArray list;
    for (const auto text : texts) list.addObject(S(text));
    return list;
}

std::string XmlOf(std::string_view content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + std::string(content) + "</plist>\n";
}

std::string Nested(int depth) {
    std::string text;
    for (int i = 0; i < depth; i++) text += "<array>";
    for (int i = 0; i < depth; i++) text += "</array>";
    return text;
}

}  // namespace

TEST(UserDefaults, ValuesComeBackAsTheyWere) {
    const TempFolder folder;
    const std::string path = folder.Join("deep/er/store.plist");  // the folders are made
    NSMutableDictionary all;
    const std::string_view texts[] = {"",
                                      " lead and trail ",
                                      "a<b>&\"c'&amp;",
                                      "tab\tline\nreturn\r\x01\x1f\x7f",
                                      "]]>",
                                      "<!-- no comment -->",
                                      "\xC3\xBC \xE4\xB8\xAD \xF0\x9F\x95\x90"};
    for (size_t i = 0; i < std::size(texts); i++) all.setValueForKey(S(texts[i]), S("text" + std::to_string(i)));
    for (const auto text : texts) all.setValueForKey(S("value"), S(text));  // as keys, too
    for (const long number : {0L, 1L, -1L, LONG_MAX, LONG_MIN, 1L << 31, 4294967296L})
        all.setValueForKey(NSNumber::numberWithLong(number), S("number" + std::to_string(number)));
    all.setValueForKey(NSNumber::numberWithUnsignedInt(UINT_MAX), S("unsigned"));
    all.setValueForKey(NSNumber::numberWithBool(true), S("true"));
    all.setValueForKey(NSNumber::numberWithBool(false), S("false"));
    all.setValueForKey(List({"a", "", "a"}), S("list"));
    all.setValueForKey(NSMutableArray(), S("empty list"));
    all.setValueForKey(NSMutableDictionary(), S("empty dictionary"));
    for (size_t length = 0; length < 5; length++)
        all.setValueForKey(NSData::dataWithBytes("\x00\xFF\x80 <", length), S("data" + std::to_string(length)));
    NSMutableDictionary inner;
    inner.setValueForKey(List({"x"}), S("list"));
    all.setValueForKey(inner, S("dictionary"));
    {
        UserDefaultsStore store(path);
        for (const auto& [key, value] : all) store.Set(key, value);
        ASSERT_TRUE(store.Synchronize());
    }
    EXPECT_EQ(FileAt(path), all);
    UserDefaultsStore again(path);
    for (const auto& [key, value] : all) EXPECT_EQ(again.Find(key), value) << key.View();
    EXPECT_TRUE(again.Find(S("true")).Number().IsBool());
    EXPECT_FALSE(again.Find(S("number1")).Number().IsBool());
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0600});
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

// Under another name there would be another store, without what is stored.
TEST(UserDefaults, APathIsKnownOnlyWhereTheBundleCanBeRead) {
    const TempFolder folder;
    const auto nameFor = [&](const std::function<void()>& make) {
        std::filesystem::remove_all(folder.Join("A.app"));
        folder.MakeFolder("A.app/Contents");
        make();
        platform::SetMainBundleRoot(folder.Join("A.app"));
        const std::string path = platform::MainBundleUserDefaultsPath();
        platform::SetMainBundleRoot("");
        return path.substr(path.rfind('/') + 1);
    };
    const auto content = [&](const std::string& plist) {
        return [&folder, plist] { folder.Write("A.app/Contents/Info.plist", plist); };
    };
    EXPECT_EQ(nameFor(content(XmlOf("<dict><key>CFBundleIdentifier</key><string>a.b</string></dict>"))), "a.b.plist");
    EXPECT_EQ(nameFor(content(XmlOf("<dict/>"))), "platform_tests.plist");
    EXPECT_EQ(nameFor([] {}), "platform_tests.plist");
    EXPECT_EQ(nameFor(content("damaged")), "");
    EXPECT_EQ(nameFor([&] { folder.MakeFolder("A.app/Contents/Info.plist"); }), "");
}

TEST(UserDefaults, WritesOnlyWhatChanged) {
    const TempFolder folder;
    const std::string path = folder.Join("store.plist");
    FaultyFileCalls calls;
    UserDefaultsStore store(path, calls);
    calls.Arm({1, EIO, true});
    EXPECT_TRUE(store.Synchronize());
    store.Remove(S("never there"));
    EXPECT_TRUE(store.Synchronize());
    EXPECT_FALSE(calls.HasFired());
    EXPECT_FALSE(std::filesystem::exists(path));
    store.Set(S("key"), S("value"));
    EXPECT_FALSE(store.Synchronize());
}

TEST(UserDefaults, DamagedFileIsSetAside) {
    const TempFolder folder;
    const std::string path = folder.Join("store.plist");
    const std::string contents[] = {"",
                                    "no property list",
                                    "bplist00",
                                    XmlOf(""),
                                    XmlOf("<array/>"),
                                    XmlOf("<dict><key>a</key><string>b</string>"),
                                    "<!DOCTYPE plist [<!ENTITY a \"aa\">]>" + XmlOf("<dict><key>a</key><true/></dict>"),
                                    XmlOf("<dict><key>a</key><string>&unknown;</string></dict>"),
                                    XmlOf("<dict><key>a</key>" + Nested(64) + "</dict>"),
                                    XmlOf("<dict><key>a</key>" + Nested(100'000) + "</dict>"),
                                    XmlOf("<array a=\"</array>\"><array a=\"</array>\"/></array>")};
    int number = 0;
    for (const std::string& content : contents) {
        folder.Write("store.plist", content);
        UserDefaultsStore store(path);
        EXPECT_EQ(BytesOf(path + ".damaged-" + std::to_string(++number)), content);
        EXPECT_FALSE(std::filesystem::exists(path)) << content.substr(0, 100);
        store.Set(S("new"), S("value"));
        EXPECT_TRUE(store.Synchronize());
        EXPECT_EQ(FileAt(path).count(), 1u);
    }
    folder.Write("store.plist", XmlOf("<dict><key>a</key>" + Nested(63) + "</dict>"));
    UserDefaultsStore deepest(path);
    EXPECT_TRUE(deepest.Find(S("a")));
}

// What the reader would refuse must not be written: too deep a value, too large a file.
TEST(UserDefaults, WritesNothingThatItWouldNotRead) {
    const TempFolder folder;
    const std::string path = folder.Join("store.plist");
    UserDefaultsStore store(path);
    NSArray value = NSMutableArray();
    for (int depth = 2; depth <= 64; depth++) {
        NSMutableArray outer;
        outer.addObject(value);
        value = outer;
        store.Set(S("depth" + std::to_string(depth)), value);
    }
    ASSERT_TRUE(store.Synchronize());
    EXPECT_TRUE(FileAt(path).valueForKey(S("depth63")));
    EXPECT_FALSE(store.Find(S("depth64")));

    store.Set(S("large"), S(std::string(64 << 20, 'x')));
    EXPECT_FALSE(store.Synchronize());
    EXPECT_EQ(FileAt(path).count(), 62u);
    store.Remove(S("large"));
    EXPECT_TRUE(store.Synchronize());
}

TEST(UserDefaults, UnreadableFileIsNeverReplacedAndMergedLater) {
    const TempFolder folder;
    const std::string path = folder.Join("store.plist");
    {
        UserDefaultsStore store(path);
        store.Set(S("list"), List({"a", "b"}));
        for (const auto key : {"kept", "changed", "removed"}) store.Set(S(key), S("old"));
        ASSERT_TRUE(store.Synchronize());
    }
    const std::string before = BytesOf(path);
    FaultyFileCalls calls;
    calls.Arm({1, EMFILE, true});
    UserDefaultsStore store(path, calls);
    store.Set(S("list"), List({"b", "c"}));
    store.Set(S("changed"), S("new"));
    store.Set(S("added"), S("new"));
    store.Remove(S("removed"));
    EXPECT_FALSE(store.Synchronize());
    EXPECT_EQ(BytesOf(path), before);

    calls.Arm({});
    EXPECT_TRUE(store.Synchronize());
    const NSDictionary merged = FileAt(path);
    EXPECT_EQ(merged.valueForKey(S("list")), NSObject(List({"a", "b", "c"})));
    EXPECT_EQ(merged.valueForKey(S("kept")), NSObject(S("old")));
    EXPECT_EQ(merged.valueForKey(S("changed")), NSObject(S("new")));
    EXPECT_EQ(merged.valueForKey(S("added")), NSObject(S("new")));
    EXPECT_EQ(merged.count(), 4u);
    EXPECT_EQ(store.Find(S("kept")), NSObject(S("old")));
}

TEST(UserDefaults, LinksAndOtherThingsAreRefused) {
    const TempFolder folder;
    const std::string path = folder.Join("store.plist");
    const std::string target = folder.Write("target.plist", XmlOf("<dict><key>a</key><true/></dict>"));
    const std::function<void()> makes[] = {
        [&] { std::filesystem::create_symlink(target, path); }, [&] { std::filesystem::create_symlink(path, path); },
        [&] { std::filesystem::create_directory(path); }, [&] { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); },
        [&] {
            folder.Write("store.plist", XmlOf("<dict/>"));
            if (::geteuid() == 0)
                ASSERT_EQ(::chown(path.c_str(), 1, 1), 0);
            else
                std::filesystem::permissions(path, std::filesystem::perms::none);
        }};
    for (const auto& make : makes) {
        make();
        UserDefaultsStore store(path);
        EXPECT_FALSE(store.Find(S("a")));
        store.Set(S("key"), S("value"));
        EXPECT_FALSE(store.Synchronize());
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 2);
        std::filesystem::remove(path);
        EXPECT_TRUE(store.Synchronize());
        std::filesystem::remove(path);
    }
    EXPECT_EQ(FileAt(target).count(), 1u);
}

// Each call in turn fails, once or for good: the file is the old state or the new one, whole, with nothing beside it,
// and once calls work again it becomes what memory holds.
TEST(UserDefaults, EveryFailingCallLeavesOneWholeState) {
    const TempFolder folder;
    NSMutableDictionary oldState, newState;
    oldState.setValueForKey(S("old"), S("key"));
    newState.setValueForKey(S(std::string(600'000, 'n')), S("key"));  // several writes
    newState.setValueForKey(S("second"), S("key2"));
    bool fired = true;
    for (int n = 1; fired; n++) {
        fired = false;
        for (const int error : {EIO, ENOSPC, EINTR, 0})
            for (const bool forGood : {false, true})
                for (const bool leftOver : {false, true}) {
                    const std::string path = folder.Join("sub/store.plist");
                    std::filesystem::remove_all(folder.Join("sub"));
                    FaultyFileCalls calls;
                    UserDefaultsStore store(path, calls);
                    store.Set(S("key"), S("old"));
                    ASSERT_TRUE(store.Synchronize());
                    if (leftOver) folder.Write("sub/store.plist.new", "of a crash");

                    store.Set(S("key"), newState.valueForKey(S("key")));
                    store.Set(S("key2"), S("second"));
                    calls.Arm({n, error, forGood});
                    const bool done = store.Synchronize();
                    fired = fired || calls.HasFired();
                    const NSDictionary onDisk = FileAt(path);
                    ASSERT_TRUE(onDisk == newState || (!done && onDisk == oldState)) << n << " " << error;
                    if (!calls.HasFired() || error == 0) {
                        EXPECT_TRUE(done);
                    }
                    // Calls that all fail can't remove it either.
                    if (!forGood && !leftOver) {
                        EXPECT_FALSE(std::filesystem::exists(path + ".new")) << n;
                    }
                    EXPECT_EQ(store.Find(S("key2")), NSObject(S("second")));

                    calls.Arm({});
                    EXPECT_TRUE(store.Synchronize());
                    EXPECT_EQ(FileAt(path), newState);
                    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
                }
    }
}

// The same for reading: nothing is lost, whichever call fails at the start.
TEST(UserDefaults, EveryFailingCallAtTheStartLosesNothing) {
    const TempFolder folder;
    const std::string path = folder.Join("store.plist");
    bool fired = true;
    for (int n = 1; fired; n++) {
        fired = false;
        for (const int error : {EIO, EACCES, EINTR})
            for (const bool forGood : {false, true}) {
                folder.Write("store.plist", XmlOf("<dict><key>stored</key><true/></dict>"));
                FaultyFileCalls calls;
                calls.Arm({n, error, forGood});
                UserDefaultsStore store(path, calls);
                fired = fired || calls.HasFired();
                calls.Arm({});
                store.Set(S("new"), S("value"));
                EXPECT_TRUE(store.Synchronize());
                EXPECT_EQ(FileAt(path).count(), 2u);
            }
    }
    EXPECT_FALSE(std::filesystem::exists(path + ".damaged-1"));
}

TEST(UserDefaults, NothingAcknowledgedIsLostToSigkill) {
    const TempFolder folder;
    const std::string path = folder.Join("store.plist");
    std::mt19937 random(20140214);
    long acknowledged = 0;
    for (int round = 0; round < 40; round++) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            UserDefaultsStore store(path);
            for (long n = acknowledged + 1;; n++) {
                store.Set(S("entry" + std::to_string(n)), NSNumber::numberWithLong(n));
                if (!store.Synchronize() || ::write(ends[1], &n, sizeof n) != sizeof n) ::_exit(1);
            }
        }
        ::close(ends[1]);
        long n = 0;
        const int before = std::uniform_int_distribution(0, 12)(random);
        for (int i = 0; i < before && ::read(ends[0], &n, sizeof n) == sizeof n; i++) acknowledged = n;
        // Somewhere inside the next change.
        const auto until = std::chrono::steady_clock::now() +
                           std::chrono::microseconds(std::uniform_int_distribution(0, 3000)(random));
        while (std::chrono::steady_clock::now() < until) {
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        while (::read(ends[0], &n, sizeof n) == sizeof n) acknowledged = n;
        ::close(ends[0]);
        const NSDictionary stored = FileAt(path);
        ASSERT_TRUE(stored || acknowledged == 0);
        for (long i = 1; i <= acknowledged; i++)
            ASSERT_EQ(stored.valueForKey(S("entry" + std::to_string(i))).Number().longValue(), i);
    }
    EXPECT_GT(acknowledged, 40);
}

TEST(UserDefaults, ThreadsShareOneStore) {
    const TempFolder folder;
    const std::string path = folder.Join("store.plist");
    UserDefaultsStore store(path);
    std::vector<std::thread> threads;
    std::atomic<bool> stop{false};
    threads.emplace_back([&] {
        while (!stop) {
            const NSArray pair = store.Find(S("pair")).Array();  // both elements change together
            if (pair) {
                EXPECT_EQ(pair[0], pair[1]);
            }
        }
    });
    for (int writer = 0; writer < 3; writer++)
        threads.emplace_back([&, writer] {
            for (int i = 0; i < 30; i++) {
                const std::string text = std::to_string(writer) + "." + std::to_string(i);
                store.Set(S("pair"), List({text, text}));
                store.Set(S(text), S("value"));
                EXPECT_TRUE(store.Synchronize());
                EXPECT_TRUE(FileAt(path).valueForKey(S(text)));  // durable when it says so
            }
        });
    for (size_t i = 1; i < threads.size(); i++) threads[i].join();
    stop = true;
    threads[0].join();
    EXPECT_EQ(FileAt(path).count(), 91u);
}

// Entries come and go in any order, and are found and written as in a plain map, whatever blocks they lie in.
TEST(UserDefaults, ManyEntriesInAnyOrder) {
    platform::DefaultsEntries entries;
    NSMutableDictionary model;
    std::mt19937 random(7);
    for (int step = 0; step < 5000; step++) {
        // Grows at random, then at its end only, then shrinks to nothing.
        const int number = step < 2000 ? static_cast<int>(random() % 1000) : step;
        const NSString key = S(std::to_string(10000 + number));
        if (step < 3000 && random() % 4) {
            entries.Set(key, NSNumber::numberWithLong(step));
            model.setValueForKey(NSNumber::numberWithLong(step), key);
        } else {
            const NSString removed = step < 3000 || model.count() == 0 ? key : model.begin()->first;
            entries.Remove(removed.View());
            model.setValueForKey(NSObject(), removed);
        }
        const NSObject* found = entries.Find(key.View());
        ASSERT_EQ(found ? *found : NSObject(), model.valueForKey(key));
        if (step % 100) continue;
        std::string file;
        for (const auto& part : entries.Texts()) file += *part.Get();
        ASSERT_EQ(platform::ParsePropertyList(file).value(), model) << step;
    }
    EXPECT_EQ(model.count(), 0u);
    EXPECT_EQ(entries.Texts().size(), 2u);
}
