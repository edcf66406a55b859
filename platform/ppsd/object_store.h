// The broker's objects: a tree of names, each object a list of attributes
// kept as the text lines they were written as, so an attribute keeps its
// encoding and an unchanged object is never re-encoded. Directories are
// explicit: each has a record (owner, group, mode) made when something is
// first created under it, kept until it is removed, stored like an object.
//
// Persistence: every object has one file in the store directory, named
// after its path (escaped, or hashed when too long), holding its owner, mode,
// path and text. A "nopersist" object's file holds no text, only the entry:
// after a restart it is there, empty, with its owner and mode, so nobody
// else can take its name (or create objects under it) before its owner
// opens it again. A directory's file holds its owner, mode and path and a
// "directory" line. A file is written to a temporary name and renamed over
// the old one, so a crash of the broker leaves either the old or the new object, never half of one.
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ppsd {

class Object {
  public:
    Object(std::string path, uid_t owner_uid, gid_t owner_gid, mode_t mode);

    const std::string& path() const { return path_; }
    // "@<last component>\n": the object line of everything sent to readers.
    const std::string& object_line() const { return object_line_; }
    std::string_view basename() const {
        return std::string_view(object_line_).substr(1, object_line_.size() - 2);
    }

    // Applies one write (PPS text, cut in place while parsed): attribute
    // lines set, "-name" lines delete. The lines that really changed
    // something are appended to `delta` ("name:enc:value" or "-name", one
    // per line). Returns the number of changes. Parsing stops at the first
    // malformed line; what came before it is applied.
    size_t Apply(char* text, std::string* delta);
    // Sets one attribute line as stored ("name:enc:value"); for loading.
    bool SetLine(std::string_view line);
    // Drops every attribute; true if there were any.
    bool Clear();
    bool empty() const { return attrs_.empty(); }
    // Bytes of the attribute lines as rendered (each with its newline),
    // kept up to date by every change rather than counted by rendering.
    size_t attribute_bytes() const { return attribute_bytes_; }
    size_t size() const { return attrs_.size(); }

    // "@name\n" then one line per attribute, in the order first written.
    // Cached until the next change.
    const std::string& Render();

    uid_t owner_uid() const { return owner_uid_; }
    gid_t owner_gid() const { return owner_gid_; }
    mode_t mode() const { return mode_; }

    bool persistent = true;     // false once opened "?nopersist": only the entry is stored
    bool dirty = false;         // changed since last stored
    bool entry_stored = false;  // the store holds its entry (owner, mode, persistence)
    int store_error = 0;        // errno of the last save that failed; 0 after one succeeds
    bool detached = false;      // unlinked while handles still had it open
    bool save_queued = false;   // in the broker's list of objects to store

  private:
    struct Attribute {
        std::string name;
        std::string line;
    };
    bool Set(std::string_view name, std::string_view encoding, std::string_view value,
             std::string* delta);
    bool Delete(std::string_view name, std::string* delta);
    void Reindex();

    std::string path_;
    std::string object_line_;
    uid_t owner_uid_;
    gid_t owner_gid_;
    mode_t mode_;
    std::vector<Attribute> attrs_;
    std::unordered_map<std::string, size_t> index_;
    size_t attribute_bytes_ = 0;
    std::string rendered_;
    bool rendered_valid_ = false;
};

// Cleans an absolute object path: collapses "//", drops a trailing '/'.
// Returns false (EINVAL) for a relative path or a "." or ".." component.
bool NormalizePath(std::string_view in, std::string* out);
// 0 for a path an object may have; ENAMETOOLONG past pps_wire::kMaxName
// bytes, EINVAL for a control character (a newline would end the object
// line every reader parses).
int CheckObjectName(std::string_view path);

// A directory's record.
struct Directory {
    uid_t owner_uid = 0;
    gid_t owner_gid = 0;
    mode_t mode = 0;
};

class ObjectTree {
  public:
    std::shared_ptr<Object> Find(const std::string& path) const;
    // The record of directory `path`, or null. "/" and "/pps" always exist:
    // root's, open to all and sticky like /tmp (01777).
    const Directory* FindDirectory(const std::string& path) const;
    bool IsDirectory(const std::string& path) const { return FindDirectory(path) != nullptr; }
    // The closest existing directory above `path` (its parent when that exists).
    std::string NearestDirectory(const std::string& path) const;
    // Makes every missing directory above `path` with this record; returns
    // their paths, outermost first.
    std::vector<std::string> MakeParents(const std::string& path, const Directory& record);
    void InsertDirectory(const std::string& path, const Directory& record);
    void EraseDirectory(const std::string& path);
    // Whether an object or a directory lies under `path`.
    bool HasEntriesUnder(const std::string& path) const;
    // For a store written before directories had records: each missing
    // directory above an object is made from the first object under it (in
    // path order), as if that object had made it. Returns their paths.
    std::vector<std::string> AdoptMissingDirectories();
    // An ancestor of `path` that is an object (then `path` cannot exist).
    bool HasObjectAncestor(const std::string& path) const;
    void Insert(std::shared_ptr<Object> object);
    void Erase(const std::string& path);
    // Direct entries of a directory, sorted; directories end in '/'.
    std::vector<std::string> List(const std::string& dir) const;
    const std::map<std::string, std::shared_ptr<Object>>& objects() const { return objects_; }

  private:
    std::map<std::string, std::shared_ptr<Object>> objects_;
    std::map<std::string, Directory> directories_;
};

// The record of a directory made for an object of `object_mode` by its
// creator: 0755, and group-writable when the object is, so that the group
// an object is made for may create beside it.
Directory DirectoryFor(uid_t uid, gid_t gid, mode_t object_mode);

// The store directory of persistent objects.
class ObjectStore {
  public:
    explicit ObjectStore(std::string dir) : dir_(std::move(dir)) {}
    // Writes the object safely (temporary file, then rename): its entry, and
    // its text when it is persistent. 0 or errno.
    int Save(Object& object);
    // Writes a directory's record the same way. 0 or errno.
    int SaveDirectory(const std::string& path, const Directory& record);
    // Removes the stored copy, if any.
    void Remove(const std::string& path);
    // Loads every stored object and directory into `tree`, skipping leftover
    // temporary files and files that do not parse (each reported in
    // `problems`, left on disk for a look). Returns the number of objects loaded.
    size_t LoadAll(ObjectTree* tree, std::vector<std::string>* problems);

    // The object's file: the one it was loaded from, else its escaped path
    // (or a hash of it when that is too long); never another object's.
    std::string FileFor(const std::string& path);

  private:
    int WriteFile(const std::string& path, const std::string& text);

    std::string dir_;
    std::unordered_map<std::string, std::string> file_of_;  // path -> file name
    std::unordered_map<std::string, std::string> path_of_;  // file name -> path
};

}  // namespace ppsd
