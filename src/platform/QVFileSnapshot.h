// One look at a file as a scan meets it: one open, one status call, one read of
// its first block and one listing of its attribute names, plus what the
// listing of its folder already says of its companions ("._NAME" and
// ".AppleDouble"). While a snapshot is in use on a thread, the platform's
// lookups about that one file (attributes, companions, readability, dates,
// reading its bytes) answer from it instead of asking the file system again.
// It only ever answers "absent" or gives bytes it read itself; anything it
// cannot tell is asked of the file system as before.
#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <memory>
#include <optional>
#include <vector>

class QVFileSnapshot
{
public:
    // The names a folder listing found, shared by the snapshots of its files.
    class Folder
    {
    public:
        // Names in byte order, as the scan lists them.
        Folder(const QString &path, std::vector<QByteArray> sortedNames);
        ~Folder();
        Folder(const Folder &) = delete;
        Folder &operator=(const Folder &) = delete;
        const QString &path() const { return m_path; }
        bool has(const QByteArray &name) const;
        // The folder held open, so that its files open by name alone (the
        // kernel need not walk the whole path again); -1 if it would not open.
        int descriptor() const { return m_fd; }

    private:
        QString m_path;
        std::vector<QByteArray> m_names;
        int m_fd = -1;
    };

    // Takes the snapshot of `path`, whose entry is `name` in `folder` (a file
    // reached by a link has no folder listing: its companions are looked up).
    // Never fails: openError() and exists() say what did.
    QVFileSnapshot(const QString &path, std::shared_ptr<const Folder> folder, const QByteArray &name);
    ~QVFileSnapshot();
    QVFileSnapshot(const QVFileSnapshot &) = delete;
    QVFileSnapshot &operator=(const QVFileSnapshot &) = delete;

    // Makes the snapshot the thread's own for the scope's life.
    class Use
    {
    public:
        explicit Use(const QVFileSnapshot *snapshot);
        ~Use();
        Use(const Use &) = delete;
        Use &operator=(const Use &) = delete;

    private:
        const QVFileSnapshot *m_previous;
    };

    // The snapshot of `path` in use on this thread, or null.
    static const QVFileSnapshot *of(const QString &path);
    // Whether the companion file (a sidecar or netatalk path) of the file in
    // use is known to be absent.
    static bool companionKnownAbsent(const QString &companion);

    const QString &path() const { return m_path; }
    // QVForkStorage's companion paths of the file, made once.
    const QString &sidecarPath() const { return m_sidecarPath; }
    const QString &netatalkPath() const { return m_netatalkPath; }

    // What lookups found out about the file, kept for the next one to ask.
    struct Memo {
        bool finderInfoRead = false;
        QByteArray finderInfo;
        int finderInfoPlace = 0;
    };
    Memo &memo() const { return m_memo; }

    // errno of opening the file (it is still stat'ed when it cannot be opened),
    // 0 when it opened.
    int openError() const { return m_openError; }
    // Whether the file exists (status() is valid).
    bool exists() const { return m_exists; }
    bool isRegular() const;
    bool isDirectory() const;
    quint64 fileSystem() const { return m_device; }
    quint64 inode() const { return m_inode; }
    qint64 size() const { return m_size; }
    // Seconds since the epoch: birth time where the file system keeps one,
    // else the modification time.
    qint64 birthOrModificationTime() const { return m_birth; }

    // The first bytes of the file (all of a small file).
    const QByteArray &head() const { return m_head; }
    // Whether the attribute is there; nullopt when the names could not be listed.
    std::optional<bool> hasAttribute(const char *name) const;
    // A random-access device over the file's bytes, open for reading; null when
    // the file did not open.
    std::unique_ptr<QIODevice> open() const;
    // Bytes at `pos`: fewer at the end of the file, empty on error.
    QByteArray read(qint64 pos, qint64 length) const;

    static constexpr qint64 kHeadSize = 64 * 1024;

private:
    std::shared_ptr<const Folder> m_folder;
    QString m_path;
    QString m_sidecarPath;
    QString m_netatalkPath;
    QByteArray m_name;
    // What the folder listing says of the companions.
    bool m_sidecarListed = true;
    bool m_netatalkListed = true;
    int m_fd = -1;
    int m_openError = 0;
    bool m_exists = false;
    unsigned m_mode = 0;
    quint64 m_device = 0;
    quint64 m_inode = 0;
    qint64 m_size = 0;
    qint64 m_birth = 0;
    QByteArray m_head;
    bool m_attributesListed = false;
    QByteArray m_attributeNames;
    mutable Memo m_memo;
};
