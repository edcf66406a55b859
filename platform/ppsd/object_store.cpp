#include "platform/ppsd/object_store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_set>

#include "platform/pps/pps_wire.h"
#include "platform/pps/ppsparse.h"

namespace ppsd {

namespace {

constexpr const char* kStoreMagic = "ppsd-object 1";
constexpr const char* kTempSuffix = ".tmp";
// The line after the path in the file of an object whose text is not
// stored (no attribute line can look like it: it has no ':').
constexpr const char* kNopersistLine = "nopersist";
// The line after the path in a directory's file.
constexpr const char* kDirectoryLine = "directory";

std::string OwnerLines(uid_t uid, gid_t gid, mode_t mode, const std::string& path) {
    char meta[96];
    std::snprintf(meta, sizeof meta, "owner %u %u %o\n", static_cast<unsigned>(uid),
                  static_cast<unsigned>(gid), static_cast<unsigned>(mode));
    return std::string(kStoreMagic) + "\n" + meta + "path " + path + "\n";
}

bool IsPpsRoot(const std::string& path) {
    return path == "/" || path == "/pps";
}

std::string LastComponent(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool WriteAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// Store file names: the object path with every byte but letters, digits,
// '_' and '-' written as %XX, so that every object is one flat file, no two
// paths share a name, and no object file holds a '.' (a temporary file,
// "<name>.tmp", can never be an object's). A name that would be too long for
// the file system is "~" and a hash of the path instead (the file holds the
// path, and the store makes sure no two paths get the same one).
constexpr size_t kMaxEscapedName = 200;

std::string EscapeName(const std::string& path) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (char c : path) {
        auto byte = static_cast<unsigned char>(c);
        if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
            (byte >= '0' && byte <= '9') || byte == '_' || byte == '-') {
            out += c;
        } else {
            out += '%';
            out += kHex[byte >> 4];
            out += kHex[byte & 15];
        }
    }
    return out;
}

// Decodes every %XX (files of older stores escaped only '%' and '/').
bool UnescapeName(const std::string& name, std::string* path) {
    path->clear();
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] != '%') {
            *path += name[i];
            continue;
        }
        if (i + 2 >= name.size()) return false;
        char* end = nullptr;
        std::string code = name.substr(i + 1, 2);
        long byte = std::strtol(code.c_str(), &end, 16);
        if (end != code.c_str() + 2) return false;
        *path += static_cast<char>(byte);
        i += 2;
    }
    return true;
}

std::string HashedName(const std::string& path, unsigned probe) {
    uint64_t hash = 14695981039346656037ull;  // FNV-1a, 64 bits
    for (char c : path) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211ull;
    }
    char name[48];
    std::snprintf(name, sizeof name, "~%016llx-%u", static_cast<unsigned long long>(hash), probe);
    return name;
}

}  // namespace

Object::Object(std::string path, uid_t owner_uid, gid_t owner_gid, mode_t mode)
    : path_(std::move(path)), owner_uid_(owner_uid), owner_gid_(owner_gid), mode_(mode & 07777) {
    object_line_ = "@" + LastComponent(path_) + "\n";
}

bool Object::Set(std::string_view name, std::string_view encoding, std::string_view value,
                 std::string* delta) {
    // Build the line in the delta buffer's tail to avoid a temporary.
    size_t mark = delta->size();
    delta->append(name).append(1, ':').append(encoding).append(1, ':').append(value);
    std::string_view line(delta->data() + mark, delta->size() - mark);
    auto found = index_.find(std::string(name));
    if (found != index_.end()) {
        std::string& stored = attrs_[found->second].line;
        if (stored == line) {
            delta->resize(mark);
            return false;
        }
        attribute_bytes_ += line.size() - stored.size();
        stored.assign(line);
    } else {
        index_.emplace(std::string(name), attrs_.size());
        attrs_.push_back({std::string(name), std::string(line)});
        attribute_bytes_ += line.size() + 1;
    }
    delta->push_back('\n');
    rendered_valid_ = false;
    dirty = true;
    return true;
}

bool Object::Delete(std::string_view name, std::string* delta) {
    auto found = index_.find(std::string(name));
    if (found == index_.end()) return false;
    attribute_bytes_ -= attrs_[found->second].line.size() + 1;
    attrs_.erase(attrs_.begin() + static_cast<std::ptrdiff_t>(found->second));
    Reindex();
    delta->append(1, '-').append(name).append(1, '\n');
    rendered_valid_ = false;
    dirty = true;
    return true;
}

void Object::Reindex() {
    index_.clear();
    for (size_t i = 0; i < attrs_.size(); ++i) index_.emplace(attrs_[i].name, i);
}

size_t Object::Apply(char* text, std::string* delta) {
    size_t changes = 0;
    char* cursor = text;
    pps_attrib_t info{};
    for (;;) {
        pps_status_t kind = ppsparse(&cursor, nullptr, nullptr, &info, 0);
        if (kind == PPS_END || kind == PPS_ERROR) break;
        if (kind == PPS_ATTRIBUTE && info.attr_name != nullptr && *info.attr_name != '\0') {
            if (Set(info.attr_name, info.encoding ? info.encoding : "",
                    info.value ? info.value : "", delta))
                ++changes;
        } else if (kind == PPS_ATTRIBUTE_DELETED && info.attr_name != nullptr) {
            if (Delete(info.attr_name, delta)) ++changes;
        }
        // Object lines name the object written to; the other kinds carry
        // nothing for a write.
    }
    return changes;
}

bool Object::SetLine(std::string_view line) {
    size_t colon = line.find(':');
    if (colon == 0 || colon == std::string_view::npos) return false;
    size_t second = line.find(':', colon + 1);
    if (second == std::string_view::npos) return false;
    std::string scratch;
    Set(line.substr(0, colon), line.substr(colon + 1, second - colon - 1), line.substr(second + 1),
        &scratch);
    return true;
}

bool Object::Clear() {
    if (attrs_.empty()) return false;
    attrs_.clear();
    index_.clear();
    attribute_bytes_ = 0;
    rendered_valid_ = false;
    dirty = true;
    return true;
}

const std::string& Object::Render() {
    if (!rendered_valid_) {
        rendered_.assign(object_line_);
        for (const auto& attr : attrs_) rendered_.append(attr.line).append(1, '\n');
        rendered_valid_ = true;
    }
    return rendered_;
}

bool NormalizePath(std::string_view in, std::string* out) {
    if (in.empty() || in[0] != '/') return false;
    out->clear();
    size_t i = 0;
    while (i < in.size()) {
        while (i < in.size() && in[i] == '/') ++i;
        size_t end = in.find('/', i);
        if (end == std::string_view::npos) end = in.size();
        std::string_view part = in.substr(i, end - i);
        if (part.empty()) break;
        if (part == "." || part == "..") return false;
        out->append(1, '/').append(part);
        i = end;
    }
    if (out->empty()) *out = "/";
    return true;
}

int CheckObjectName(std::string_view path) {
    if (path.size() > pps_wire::kMaxName) return ENAMETOOLONG;
    for (char c : path)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return EINVAL;
    return 0;
}

std::shared_ptr<Object> ObjectTree::Find(const std::string& path) const {
    auto found = objects_.find(path);
    return found == objects_.end() ? nullptr : found->second;
}

const Directory* ObjectTree::FindDirectory(const std::string& path) const {
    static const Directory kOpenToAll{0, 0, 01777};
    if (IsPpsRoot(path)) return &kOpenToAll;
    auto found = directories_.find(path);
    return found == directories_.end() ? nullptr : &found->second;
}

std::string ObjectTree::NearestDirectory(const std::string& path) const {
    std::string dir = path;
    do {
        size_t slash = dir.rfind('/');
        dir.resize(slash == 0 || slash == std::string::npos ? 1 : slash);
    } while (!IsDirectory(dir));
    return dir;
}

std::vector<std::string> ObjectTree::MakeParents(const std::string& path, const Directory& record) {
    std::vector<std::string> made;
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        std::string dir = path.substr(0, slash);
        if (IsDirectory(dir)) continue;
        directories_[dir] = record;
        made.push_back(std::move(dir));
    }
    return made;
}

void ObjectTree::InsertDirectory(const std::string& path, const Directory& record) {
    directories_[path] = record;
}

void ObjectTree::EraseDirectory(const std::string& path) {
    directories_.erase(path);
}

bool ObjectTree::HasEntriesUnder(const std::string& path) const {
    std::string prefix = path == "/" ? "/" : path + "/";
    auto under = [&](const auto& map) {
        auto next = map.upper_bound(prefix);
        return next != map.end() && next->first.compare(0, prefix.size(), prefix) == 0;
    };
    return under(objects_) || under(directories_);
}

std::vector<std::string> ObjectTree::AdoptMissingDirectories() {
    std::vector<std::string> made;
    for (const auto& [path, object] : objects_) {
        auto more = MakeParents(
            path, DirectoryFor(object->owner_uid(), object->owner_gid(), object->mode()));
        made.insert(made.end(), more.begin(), more.end());
    }
    return made;
}

Directory DirectoryFor(uid_t uid, gid_t gid, mode_t object_mode) {
    return Directory{uid, gid, static_cast<mode_t>(0755 | (object_mode & 020))};
}

bool ObjectTree::HasObjectAncestor(const std::string& path) const {
    for (size_t slash = path.rfind('/'); slash != std::string::npos && slash > 0;
         slash = path.rfind('/', slash - 1)) {
        if (objects_.count(path.substr(0, slash)) != 0) return true;
    }
    return false;
}

void ObjectTree::Insert(std::shared_ptr<Object> object) {
    std::string path = object->path();
    objects_[path] = std::move(object);
}

void ObjectTree::Erase(const std::string& path) {
    objects_.erase(path);
}

std::vector<std::string> ObjectTree::List(const std::string& dir) const {
    std::vector<std::string> entries;
    std::string prefix = dir == "/" ? "/" : dir + "/";
    // Direct entries only: a name with a '/' after the prefix lies deeper.
    auto collect = [&](const auto& map, const char* suffix) {
        for (auto it = map.upper_bound(prefix); it != map.end(); ++it) {
            if (it->first.compare(0, prefix.size(), prefix) != 0) break;
            std::string rest = it->first.substr(prefix.size());
            if (rest.find('/') == std::string::npos) entries.push_back(rest + suffix);
        }
    };
    collect(objects_, "");
    collect(directories_, "/");
    std::sort(entries.begin(), entries.end());
    return entries;
}

std::string ObjectStore::FileFor(const std::string& path) {
    auto known = file_of_.find(path);
    if (known != file_of_.end()) return dir_ + "/" + known->second;
    std::string name = EscapeName(path);
    for (unsigned probe = 0; name.size() > kMaxEscapedName || path_of_.count(name) != 0; ++probe)
        name = HashedName(path, probe);
    file_of_[path] = name;
    path_of_[name] = path;
    return dir_ + "/" + name;
}

int ObjectStore::Save(Object& object) {
    std::string text =
        OwnerLines(object.owner_uid(), object.owner_gid(), object.mode(), object.path());
    if (object.persistent) {
        // The object's text without its object line.
        const std::string& rendered = object.Render();
        text.append(rendered, object.object_line().size());
    } else {
        text += kNopersistLine;
        text += "\n";
    }
    int code = WriteFile(object.path(), text);
    if (code != 0) return code;
    object.dirty = false;
    object.entry_stored = true;
    object.store_error = 0;
    return 0;
}

int ObjectStore::SaveDirectory(const std::string& path, const Directory& record) {
    return WriteFile(path, OwnerLines(record.owner_uid, record.owner_gid, record.mode, path) +
                               kDirectoryLine + "\n");
}

int ObjectStore::WriteFile(const std::string& path, const std::string& text) {
    std::string final_name = FileFor(path);
    std::string temp_name = final_name + kTempSuffix;
    int fd = ::open(temp_name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return errno;
    bool ok = WriteAll(fd, text);
    int saved = errno;
    // A full file system may take the bytes and fail only when they are
    // flushed: close reports that too.
    if (::close(fd) != 0 && ok) {
        ok = false;
        saved = errno;
    }
    if (!ok || ::rename(temp_name.c_str(), final_name.c_str()) != 0) {
        if (ok) saved = errno;
        ::unlink(temp_name.c_str());
        return saved != 0 ? saved : EIO;
    }
    return 0;
}

void ObjectStore::Remove(const std::string& path) {
    ::unlink(FileFor(path).c_str());
    auto known = file_of_.find(path);
    path_of_.erase(known->second);
    file_of_.erase(known);
}

size_t ObjectStore::LoadAll(ObjectTree* tree, std::vector<std::string>* problems) {
    size_t loaded = 0;
    DIR* dir = ::opendir(dir_.c_str());
    if (dir == nullptr) return 0;
    std::vector<std::string> names;
    std::unordered_set<std::string> loaded_paths;
    while (dirent* entry = ::readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
    for (const auto& name : names) {
        std::string file = dir_ + "/" + name;
        if (name.size() > std::strlen(kTempSuffix) &&
            name.compare(name.size() - std::strlen(kTempSuffix), std::string::npos, kTempSuffix) ==
                0) {
            // An interrupted save: the previous copy (if any) is still whole.
            ::unlink(file.c_str());
            continue;
        }
        std::string path;
        bool hashed = name[0] == '~';
        FILE* in = std::fopen(file.c_str(), "re");
        if ((!hashed && !UnescapeName(name, &path)) || in == nullptr) {
            if (in != nullptr) std::fclose(in);
            if (problems) problems->push_back(name + ": not an object file");
            continue;
        }
        std::string text;
        char chunk[4096];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, in)) > 0) text.append(chunk, n);
        std::fclose(in);

        std::vector<std::string_view> lines;
        std::string_view rest(text);
        while (!rest.empty()) {
            size_t nl = rest.find('\n');
            lines.push_back(rest.substr(0, nl));
            if (nl == std::string_view::npos) break;
            rest.remove_prefix(nl + 1);
        }
        unsigned uid = 0, gid = 0, mode = 0;
        std::string stored_path;
        if (lines.size() < 3 || lines[0] != kStoreMagic ||
            std::sscanf(std::string(lines[1]).c_str(), "owner %u %u %o", &uid, &gid, &mode) != 3 ||
            lines[2].substr(0, 5) != "path " || (!hashed && lines[2].substr(5) != path)) {
            if (problems) problems->push_back(name + ": malformed, ignored");
            continue;
        }
        path = lines[2].substr(5);
        if (!loaded_paths.insert(path).second) {
            if (problems) problems->push_back(name + ": a second file of " + path + ", ignored");
            continue;
        }
        // The object keeps the file it was found in.
        file_of_[path] = name;
        path_of_[name] = path;
        if (lines.size() > 3 && lines[3] == kDirectoryLine) {
            tree->InsertDirectory(path, Directory{uid, gid, static_cast<mode_t>(mode & 07777)});
            continue;
        }
        auto object = std::make_shared<Object>(path, uid, gid, mode);
        if (lines.size() > 3 && lines[3] == kNopersistLine) {
            object->persistent = false;  // its entry only, as it was stored
        } else {
            for (size_t i = 3; i < lines.size(); ++i)
                if (!lines[i].empty()) object->SetLine(lines[i]);
        }
        object->dirty = false;
        object->entry_stored = true;
        tree->Insert(std::move(object));
        ++loaded;
    }
    return loaded;
}

}  // namespace ppsd
