#pragma once

#include "GoZArrays.h"
#include "GoZFile.h"

#include <QFile>

namespace GeometryStack2 {

/// A GoZ file mapped into memory and walked once: its texts and numbers are
/// read into `fields` (whose arrays stay empty), and its arrays are
/// `arrays`, read in place from the mapping. Loading a dense subtool this way
/// copies nothing and takes no fresh memory for the file's content; the
/// arrays are valid as long as this object lives and the file is not cut
/// short meanwhile.
class GoZMappedFile
{
public:
    GoZMappedFile() = default;
    GoZMappedFile(const GoZMappedFile&) = delete;
    GoZMappedFile& operator=(const GoZMappedFile&) = delete;
    ~GoZMappedFile();

    /// Maps and walks `path`. False on an unopenable file, a bad magic, a
    /// chunk larger than the rest of the file or a missing end chunk, with
    /// the reason in `readError`, worded as `GoZFile::readError`.
    bool open(const QString& path);
    const QString& readError() const { return m_readError; }

    const GoZFile& fields() const { return m_fields; }
    const GoZArrays& arrays() const { return m_arrays; }
    /// The whole file as a `GoZFile`: the fields and a copy of the arrays.
    GoZFile toFile() const;

private:
    bool walk(const uchar* data, qint64 size);

    QFile m_file;
    uchar* m_data = nullptr;
    GoZFile m_fields;
    GoZArrays m_arrays;
    QString m_readError;
};

} // namespace GeometryStack2
