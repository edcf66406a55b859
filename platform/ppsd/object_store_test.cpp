#include "platform/ppsd/object_store.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "platform/pps/pps_client.h"
#include "testsupport/child_process.h"

namespace ppsd {
namespace {

size_t ApplyText(Object& object, std::string text, std::string* delta) {
    delta->clear();
    return object.Apply(text.data(), delta);
}

// One write to an object that holds `before`: how many attributes it
// changed, the delta readers get, and the object afterwards.
struct ApplyCase {
    const char* before;
    const char* write;
    size_t changes;
    const char* delta;
    const char* rendered;
};

TEST(ObjectApply, WritesMergeDeleteAndStopAtAMalformedLine) {
    const ApplyCase cases[] = {
        {"", "@o\nmsg::hi\nn:n:5\n", 2, "msg::hi\nn:n:5\n", "@o\nmsg::hi\nn:n:5\n"},
        {"a::1\nb::x\nc::3\n", "b::y\n", 1, "b::y\n", "@o\na::1\nb::y\nc::3\n"},
        {"a::1\n", "a::1\n", 0, "", "@o\na::1\n"},
        // Same value, other encoding: a change (the encoding is kept).
        {"a::1\n", "a:n:1\n", 1, "a:n:1\n", "@o\na:n:1\n"},
        {"a::1\nb::2\nc::3\n", "-b\n-nosuch\n", 1, "-b\n", "@o\na::1\nc::3\n"},
        // The index still finds what moved.
        {"a::1\nb::2\nc::3\n-b\n", "c::4\n", 1, "c::4\n", "@o\na::1\nc::4\n"},
        {"", "a::1\nthis line has no colon\nb::2\n", 1, "a::1\n", "@o\na::1\n"},
        {"", "dat:json:{\"a\":1}\ntext:c:one\\ntwo\n", 2, "dat:json:{\"a\":1}\ntext:c:one\\ntwo\n",
         "@o\ndat:json:{\"a\":1}\ntext:c:one\\ntwo\n"},
    };
    for (const ApplyCase& c : cases) {
        SCOPED_TRACE(c.write);
        Object object("/pps/o", 0, 0, 0644);
        std::string delta;
        ApplyText(object, c.before, &delta);
        EXPECT_EQ(ApplyText(object, c.write, &delta), c.changes);
        EXPECT_EQ(delta, c.delta);
        EXPECT_EQ(object.Render(), c.rendered);
    }
}

TEST(ObjectApply, AttributeBytesFollowEveryChange) {
    // The running count must always equal what rendering would give, since
    // the object-size limit is checked against it.
    Object object("/pps/o", 0, 0, 0644);
    std::string delta;
    const char* writes[] = {
        "a::1\nb::two\n",     "a::longer value\n",  "a::s\n",    "-b\n", "-missing\n",
        "c:json:{\"x\":1}\n", "c:json:{\"x\":1}\n", "b::back\n", "",
    };
    for (const char* text : writes) {
        SCOPED_TRACE(text);
        ApplyText(object, text, &delta);
        EXPECT_EQ(object.attribute_bytes(), object.Render().size() - object.object_line().size());
    }
    object.SetLine("d:n:42");
    EXPECT_EQ(object.attribute_bytes(), object.Render().size() - object.object_line().size());
    EXPECT_TRUE(object.Clear());
    EXPECT_EQ(object.attribute_bytes(), 0u);
    EXPECT_FALSE(object.Clear());  // empty already: no change
    EXPECT_EQ(object.Render(), "@o\n");
}

TEST(NormalizePath, Table) {
    struct Case {
        const char* in;
        bool ok;
        const char* out;
    } cases[] = {
        {"/pps/a/b", true, "/pps/a/b"},
        {"/pps//a///b/", true, "/pps/a/b"},
        {"/", true, "/"},
        {"pps/a", false, ""},
        {"", false, ""},
        {"/pps/../etc", false, ""},
        {"/pps/./a", false, ""},
    };
    for (const auto& c : cases) {
        std::string out;
        EXPECT_EQ(NormalizePath(c.in, &out), c.ok) << c.in;
        if (c.ok) {
            EXPECT_EQ(out, c.out) << c.in;
        }
    }
}

TEST(ObjectTree, ListsObjectsAndDirectories) {
    ObjectTree tree;
    for (const char* path : {"/pps/a/b/c", "/pps/a/d", "/pps/ab"}) {
        tree.MakeParents(path, Directory{0, 0, 0755});
        tree.Insert(std::make_shared<Object>(path, 0, 0, 0644));
    }
    EXPECT_TRUE(tree.IsDirectory("/pps/a"));
    EXPECT_TRUE(tree.IsDirectory("/pps/a/b"));
    EXPECT_FALSE(tree.IsDirectory("/pps/a/d"));
    EXPECT_FALSE(tree.IsDirectory("/pps/x"));
    EXPECT_TRUE(tree.HasObjectAncestor("/pps/a/d/e"));
    EXPECT_FALSE(tree.HasObjectAncestor("/pps/a/b/e"));
    EXPECT_EQ(tree.List("/pps"), (std::vector<std::string>{"a/", "ab"}));
    EXPECT_EQ(tree.List("/pps/a"), (std::vector<std::string>{"b/", "d"}));
}

TEST(ObjectStore, RoundTripKeepsOwnerModeAndLines) {
    rt::test::TempDir dir;
    ObjectStore store(dir.path());
    auto object = std::make_shared<Object>("/pps/s/config", 1000, 20, 0640);
    std::string delta;
    ApplyText(*object, "diaglogmask::1\nn:n:5\ndat:json:[1,2]\n", &delta);
    ASSERT_EQ(store.Save(*object), 0);
    EXPECT_FALSE(object->dirty);

    ObjectTree tree;
    std::vector<std::string> problems;
    EXPECT_EQ(store.LoadAll(&tree, &problems), 1u);
    EXPECT_TRUE(problems.empty());
    auto loaded = tree.Find("/pps/s/config");
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(loaded->owner_uid(), 1000u);
    EXPECT_EQ(loaded->owner_gid(), 20u);
    EXPECT_EQ(loaded->mode(), 0640u);
    EXPECT_EQ(loaded->Render(), "@config\ndiaglogmask::1\nn:n:5\ndat:json:[1,2]\n");
}

TEST(ObjectStore, InterruptedSaveAndForeignFilesAreIgnored) {
    rt::test::TempDir dir;
    ObjectStore store(dir.path());
    auto object = std::make_shared<Object>("/pps/o", 0, 0, 0644);
    std::string delta;
    ApplyText(*object, "a::old\n", &delta);
    ASSERT_EQ(store.Save(*object), 0);
    // A crash in the middle of the next save leaves its temporary file.
    std::ofstream(store.FileFor("/pps/o") + ".tmp")
        << "ppsd-object 1\nowner 0 0 644\npath /pps/o\na::ne";
    std::ofstream(dir.file("garbage")) << "not an object\n";
    std::ofstream(dir.file("%2Fpps%2Fwrongpath"))
        << "ppsd-object 1\nowner 0 0 644\npath /pps/other\n";

    ObjectTree tree;
    std::vector<std::string> problems;
    EXPECT_EQ(store.LoadAll(&tree, &problems), 1u);
    EXPECT_EQ(problems.size(), 2u);
    ASSERT_NE(tree.Find("/pps/o"), nullptr);
    EXPECT_EQ(tree.Find("/pps/o")->Render(), "@o\na::old\n");
    EXPECT_NE(::access((store.FileFor("/pps/o") + ".tmp").c_str(), F_OK), 0);
}

// Names that once shared a file, or were lost at a restart, each keep
// their own object through a save and a load.
TEST(ObjectStore, EveryNameKeepsItsObjectAcrossARestart) {
    const std::vector<std::string> paths = {
        "/pps/cfg",
        "/pps/cfg.tmp",  // the temporary name of /pps/cfg's file in older stores
        "/pps/x.tmp.tmp",
        "/pps/a%2Fb",
        "/pps/a/b",
        "/pps/sp ace",
        "/pps/" + std::string(250, '.'),  // escapes to far more than a file name may hold
        "/pps/" + std::string(249, '.') + "x",
    };
    rt::test::TempDir dir;
    {
        ObjectStore store(dir.path());
        std::set<std::string> files;
        for (const auto& path : paths) {
            auto object = std::make_shared<Object>(path, 0, 0, 0644);
            std::string delta;
            ApplyText(*object, "name::" + path.substr(0, 40) + "\n", &delta);
            ASSERT_EQ(store.Save(*object), 0) << path;
            files.insert(store.FileFor(path));
        }
        EXPECT_EQ(files.size(), paths.size()) << "two objects share a file";
    }
    ObjectStore reloaded(dir.path());
    ObjectTree tree;
    std::vector<std::string> problems;
    EXPECT_EQ(reloaded.LoadAll(&tree, &problems), paths.size());
    EXPECT_TRUE(problems.empty()) << problems.front();
    for (const auto& path : paths) {
        auto object = tree.Find(path);
        ASSERT_NE(object, nullptr) << path;
        EXPECT_EQ(object->size(), 1u) << path;
    }
}

// Directories through a real broker: their records (made by root, by
// another user, and given to a store's directories that had none) survive
// restarts, and creating in one needs the right to write it.
TEST(BrokerDirectories, KeepTheirOwnersAcrossRestartsAndGuardCreation) {
    if (::getuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    rt::test::PpsBroker broker;
    std::string socket_dir = broker.socket().substr(0, broker.socket().rfind('/'));
    ::chmod(socket_dir.c_str(), 0711);  // other users may reach the socket
    // As another user (nobody, also in root's group when asked): each
    // (create or unlink, path) gives its errno (0: it went through).
    auto as_nobody = [](bool in_root_group, bool unlink, const char* path) {
        pid_t pid = ::fork();
        if (pid == 0) {
            gid_t root_group = 0;
            if (::setgroups(in_root_group ? 1 : 0, &root_group) != 0 || ::setgid(65534) != 0 ||
                ::setuid(65534) != 0)
                ::_exit(255);
            int fd = unlink ? pps_unlink(path) : pps_open(path, O_RDWR | O_CREAT, 0644);
            ::_exit(fd < 0 ? errno : 0);
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    auto make = [](const char* path, mode_t mode) {
        ::close(pps_open(path, O_RDWR | O_CREAT, mode));
    };
    make("/pps/d/cfg", 0660);  // group-writable: /pps/d lets root's group create too
    make("/pps/d/sub/x", 0640);
    make("/pps/empty/x", 0644);
    ASSERT_EQ(pps_unlink("/pps/empty/x"), 0);
    ASSERT_EQ(as_nobody(false, false, "/pps/n/own"), 0);
    // An object of a store from before directory records, nobody's.
    std::ofstream(broker.store() + "/%2Fpps%2Fold%2Fobj")
        << "ppsd-object 1\nowner 65534 65534 664\npath /pps/old/obj\n";
    broker.Restart();
    // /pps/old was given a record and stored: it stays once empty.
    ASSERT_EQ(pps_unlink("/pps/old/obj"), 0);
    broker.Restart();

    struct Dir {
        const char* path;
        uid_t owner;
        mode_t mode;
    } dirs[] = {
        {"/pps", 0, 01777},      {"/pps/d", 0, 0775},     {"/pps/d/sub", 0, 0755},
        {"/pps/empty", 0, 0755}, {"/pps/n", 65534, 0755}, {"/pps/old", 65534, 0775},
    };
    for (const Dir& dir : dirs) {
        struct stat info {};
        ASSERT_EQ(pps_stat(dir.path, &info), 0) << dir.path;
        EXPECT_EQ(info.st_uid, dir.owner) << dir.path;
        EXPECT_EQ(info.st_mode, S_IFDIR | dir.mode) << dir.path;
    }
    struct Try {
        bool in_root_group, unlink;
        const char* path;
        int error;
    } tries[] = {
        {false, false, "/pps/d/x", EACCES},          // root's directory
        {false, false, "/pps/d/sub/new/x", EACCES},  // nor below it
        {true, false, "/pps/d/x", 0},                // root's group may: /pps/d is 0775
        {true, false, "/pps/d/sub/x2", EACCES},      // /pps/d/sub is 0755
        {false, false, "/pps/n/x", 0},               // its own directory
        {false, false, "/pps/old/x", 0},             // given to it from the older store
        {false, false, "/pps/new/x", 0},             // /pps is open to all
        {false, true, "/pps/empty", EPERM},          // as in /tmp: only its owner removes it
        {false, true, "/pps/n", ENOTEMPTY},
        {false, true, "/pps/new/x", 0},
        {false, true, "/pps/new", 0},
    };
    for (const Try& t : tries)
        EXPECT_EQ(as_nobody(t.in_root_group, t.unlink, t.path), t.error)
            << t.path << (t.unlink ? " unlink" : " create") << (t.in_root_group ? " in group" : "");
    EXPECT_FALSE(pps_exists("/pps/new"));
}

}  // namespace
}  // namespace ppsd
