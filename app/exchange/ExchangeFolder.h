#pragma once

#include "ApplicationMode.h"
#include "PluginGLVisualParams.h"

#include <QFileInfo>
#include <QFileInfoList>
#include <QString>
#include <QStringList>
#include <QVector>

namespace WelkPlugin {

/// The folder through which ZBrush and this program exchange one job, as a
/// value: paths, file names and the rules for reading and ending a run.
///
/// The exchange folder (`temporaryDir`) holds subtools.txt, params.txt,
/// status.txt and import.txt; the mesh folder (`filesDir`, "Files" below it)
/// holds the exported meshes, their textures and the results. Element 0 of
/// the mesh and texture lists is the first subtool ("1_" prefix).
class ExchangeFolder
{
public:
    /// Fallback folder, used when no TempDirPath.txt is beside the program.
    static QString defaultTemporaryDir();

    /// Sets the fixed names and the fallback folders; touches no file.
    /// `applicationDir` defaults to the running program's folder.
    explicit ExchangeFolder(const QString& applicationDir = QString());

    /// Resolves the exchange folder through TempDirPath.txt and checks that
    /// it and its mesh folder exist; `error` is the missing path.
    bool checkUtilityFiles(QString& error);

    /// Points the exchange at `path` directly, as TempDirPath.txt would.
    void setTemporaryDir(const QString& path);
    /// Checks that the exchange folder and its mesh folder exist; `error` is
    /// the first missing path.
    bool checkFolders(QString& error) const;

    /// The mode word: the first argument after the program name, else the
    /// first bytes of status.txt. Only a word starting with "texture" selects
    /// the texture mode.
    ApplicationMode readApplicationMode(const QStringList& arguments) const;
    static ApplicationMode modeFromWord(const QString& word);

    /// Reads params.txt. On failure `error` is set and the defaults return.
    PluginGLVisualParams loadViewportParameters(QString& error) const;
    /// Decodes the 44-byte layout; missing bytes read as zero.
    static PluginGLVisualParams parseViewportParameters(const QByteArray& bytes);

    /// The subtool files named by subtools.txt, or else found by scanning the
    /// mesh folder. `textureFlags` is filled from subtools.txt only.
    QFileInfoList getModelFilenames(QVector<bool>& textureFlags, QString& error) const;
    /// Why `getModelFilenames` found no pair, in words for the user: what
    /// subtools.txt holds, or what the mesh folder lacks. Empty when it finds
    /// two files.
    QString modelFilesProblem() const;

    /// Stores the list, puts the "1_" file first and finds both textures.
    /// False with fewer than two files.
    bool setModelFiles(const QFileInfoList& files);

    QString tempDirPathFileName() const { return m_tempDirPathFileName; }
    QString subtoolsFileName() const { return m_subtoolsFileName; }
    QString paramsFileName() const { return m_paramsFileName; }
    QString statusFileName() const { return m_statusFileName; }
    QString importFileName() const { return m_importFileName; }

    /// Absolute paths, each with a trailing "/".
    QString applicationDirPath() const;
    QString temporaryDirPath() const;
    QString filesDirPath() const;

    const QFileInfoList& meshFiles() const { return m_meshFiles; }
    const QFileInfoList& textureFiles() const { return m_textureFiles; }
    QString meshFileName(int index) const;
    QString meshFilePath(int index) const;
    /// Empty where the subtool has no texture file.
    QString textureFileName(int index) const;
    QString textureFilePath(int index) const;
    /// Where the texture of a mesh file is looked for.
    static QString expectedTexturePath(const QFileInfo& meshFile);
    /// Replaces every non-word character by "_".
    static QString sanitizedName(const QString& name);

    /// The result mesh: the first mesh's file name without its first two
    /// characters, in the mesh folder.
    QString resultMeshPath() const;
    /// The result texture of the texture mode, beside the first mesh.
    QString resultTexturePath() const;

    QString statusFilePath() const { return temporaryDirPath() + m_statusFileName; }
    QString importFilePath() const { return temporaryDirPath() + m_importFileName; }

    /// Creates an empty import.txt unless it exists; logs on failure.
    bool createImportFile() const;
    void removeImportFile() const;
    void removeStatusFile() const;
    /// Creates status.txt holding "running" unless it exists.
    bool createStatusFile() const;

    /// What a cleanup of the mesh folder would do: a folder holding anything
    /// but GoZ and tif files is foreign and is left alone.
    struct Cleanup
    {
        bool foreign = false;
        QStringList filesToDelete; ///< canonical paths
    };
    Cleanup planCleanup() const;
    /// Deletes the planned files; returns the paths that could not go.
    static QStringList deleteFiles(const QStringList& paths);

private:
    QString m_tempDirPathFileName = QStringLiteral("TempDirPath.txt");
    QString m_subtoolsFileName = QStringLiteral("subtools.txt");
    QString m_paramsFileName = QStringLiteral("params.txt");
    QString m_statusFileName = QStringLiteral("status.txt");
    QString m_importFileName = QStringLiteral("import.txt");
    QString m_applicationDir;
    QString m_temporaryDir;
    QString m_filesDir;
    QFileInfoList m_meshFiles;
    QFileInfoList m_textureFiles;
};

} // namespace WelkPlugin
