#pragma once

#include <sqlite3.h>

namespace snipwren {
/// SQLite on real files, but one changing operation (the n-th from 1, `failAt`) or every one from it on fails with `code`.
/// Registered under `name` while it lives; connections through it must be closed before.
class FaultyFileSystem {
public:
    static constexpr const char* name = "faulty";
    int failAt = 0;
    bool failAllFromThen = false;
    int code = SQLITE_IOERR_WRITE;
    int operations = 0;

    FaultyFileSystem() : real_(sqlite3_vfs_find(nullptr)), vfs_(*real_) {
        vfs_.zName = name;
        vfs_.pNext = nullptr;
        vfs_.pAppData = this;
        vfs_.szOsFile = static_cast<int>(sizeof(File)) + real_->szOsFile;
        vfs_.xOpen = [](sqlite3_vfs* vfs, sqlite3_filename path, sqlite3_file* file, int flags, int* outFlags) {
            auto* const self = static_cast<FaultyFileSystem*>(vfs->pAppData);
            auto* const ours = reinterpret_cast<File*>(file);
            ours->base.pMethods = nullptr;
            ours->owner = self;
            const int opened = self->real_->xOpen(self->real_, path, real(file), flags, outFlags);
            if (real(file)->pMethods) ours->base.pMethods = &methods();
            return opened;
        };
        vfs_.xDelete = [](sqlite3_vfs* vfs, const char* path, int syncFolder) {
            auto* const self = static_cast<FaultyFileSystem*>(vfs->pAppData);
            return self->fails() ? SQLITE_IOERR_DELETE : self->real_->xDelete(self->real_, path, syncFolder);
        };
        sqlite3_vfs_register(&vfs_, 0);
    }
    FaultyFileSystem(const FaultyFileSystem&) = delete;
    ~FaultyFileSystem() { sqlite3_vfs_unregister(&vfs_); }

private:
    struct File {
        sqlite3_file base;
        FaultyFileSystem* owner;
    };

    /// The system's own file stands behind ours.
    static sqlite3_file* real(sqlite3_file* file) {
        return reinterpret_cast<sqlite3_file*>(reinterpret_cast<File*>(file) + 1);
    }
    static bool fails(sqlite3_file* file) { return reinterpret_cast<File*>(file)->owner->fails(); }
    static int faultOf(sqlite3_file* file) { return reinterpret_cast<File*>(file)->owner->code; }
    bool fails() {
        ++operations;
        return failAt > 0 && (failAllFromThen ? operations >= failAt : operations == failAt);
    }

    static const sqlite3_io_methods& methods() {
        static const sqlite3_io_methods table = [] {
            sqlite3_io_methods m{};
            m.iVersion = 2; // With shared memory, without memory-mapped reading.
            m.xClose = [](sqlite3_file* f) { return real(f)->pMethods->xClose(real(f)); };
            m.xRead = [](sqlite3_file* f, void* to, int n, sqlite3_int64 at) {
                return real(f)->pMethods->xRead(real(f), to, n, at);
            };
            m.xWrite = [](sqlite3_file* f, const void* from, int n, sqlite3_int64 at) {
                return fails(f) ? faultOf(f) : real(f)->pMethods->xWrite(real(f), from, n, at);
            };
            m.xTruncate = [](sqlite3_file* f, sqlite3_int64 size) {
                return fails(f) ? faultOf(f) : real(f)->pMethods->xTruncate(real(f), size);
            };
            m.xSync = [](sqlite3_file* f, int flags) {
                return fails(f) ? faultOf(f) : real(f)->pMethods->xSync(real(f), flags);
            };
            m.xFileSize = [](sqlite3_file* f, sqlite3_int64* size) {
                return real(f)->pMethods->xFileSize(real(f), size);
            };
            m.xLock = [](sqlite3_file* f, int level) { return real(f)->pMethods->xLock(real(f), level); };
            m.xUnlock = [](sqlite3_file* f, int level) { return real(f)->pMethods->xUnlock(real(f), level); };
            m.xCheckReservedLock = [](sqlite3_file* f, int* out) {
                return real(f)->pMethods->xCheckReservedLock(real(f), out);
            };
            m.xFileControl = [](sqlite3_file* f, int op, void* argument) {
                return real(f)->pMethods->xFileControl(real(f), op, argument);
            };
            m.xSectorSize = [](sqlite3_file* f) { return real(f)->pMethods->xSectorSize(real(f)); };
            m.xDeviceCharacteristics = [](sqlite3_file* f) {
                return real(f)->pMethods->xDeviceCharacteristics(real(f));
            };
            m.xShmMap = [](sqlite3_file* f, int page, int size, int extend, void volatile** out) {
                return real(f)->pMethods->xShmMap(real(f), page, size, extend, out);
            };
            m.xShmLock = [](sqlite3_file* f, int offset, int n, int flags) {
                return real(f)->pMethods->xShmLock(real(f), offset, n, flags);
            };
            m.xShmBarrier = [](sqlite3_file* f) { real(f)->pMethods->xShmBarrier(real(f)); };
            m.xShmUnmap = [](sqlite3_file* f, int remove) { return real(f)->pMethods->xShmUnmap(real(f), remove); };
            return m;
        }();
        return table;
    }

    sqlite3_vfs* const real_;
    sqlite3_vfs vfs_;
};
} // namespace snipwren
