#pragma once

#include "core/Point.h"

#include <string>

class StyleStorage;

/// The style side of a tool: the section its keys live in and typed reads and writes of
/// those keys on the process's current storage (currentStorage). With no storage attached,
/// or an empty section name, reads give the default and writes do nothing.
///
/// The rule for reads: pass the tool's present value as the default, so that a key missing
/// from a style (or one that will not parse) leaves the setting as it was, and a style is an
/// overlay on the tool's state.
///
/// Text forms: integers in decimal, doubles as "%.17g", vectors as "x,y,z", strings and
/// paths as they are.
class CToolStyle {
public:
    /// At most 15 characters; longer names are cut.
    explicit CToolStyle(std::wstring sectionName);
    virtual ~CToolStyle() = default;

    const std::wstring& sectionName() const { return sectionName_; }

    std::wstring getString(const std::wstring& key, const std::wstring& defaultValue) const;
    /// A file name: a relative one is made absolute against the storage's base folder.
    std::wstring getPath(const std::wstring& key, const std::wstring& defaultValue) const;
    double getDouble(const std::wstring& key, double defaultValue) const;
    Vector<3> getVector(const std::wstring& key, const Vector<3>& defaultValue) const;
    int getInt(const std::wstring& key, int defaultValue) const;
    /// An int read as a bool (nonzero is true).
    bool getBool(const std::wstring& key, bool defaultValue) const;

    void setString(const std::wstring& key, const std::wstring& value) const;
    void setPath(const std::wstring& key, const std::wstring& value) const;
    void setDouble(const std::wstring& key, double value) const;
    void setVector(const std::wstring& key, const Vector<3>& value) const;
    void setInt(const std::wstring& key, int value) const;
    void setBool(const std::wstring& key, bool value) const { setInt(key, value ? 1 : 0); }

    /// The storage that reads and writes go to (not owned); null when detached.
    static StyleStorage* currentStorage();
    static void setCurrentStorage(StyleStorage* storage);

    /// Attaches a storage for the life of the object, then restores the previous one.
    class Attach {
    public:
        explicit Attach(StyleStorage& storage);
        ~Attach();
        Attach(const Attach&) = delete;
        Attach& operator=(const Attach&) = delete;

    private:
        StyleStorage* previous_;
    };

private:
    std::wstring sectionName_;
};
