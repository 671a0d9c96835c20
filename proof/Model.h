#pragma once

#include "proof/Model_Command.h"
#include "proof/Model_Tree.h"

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kx::proof {

/// What the areas hold and what scripts see of them, worked out in memory from the rules alone: no line of the module
/// or its host runs here.
///
///     Answer actual = Perform(command);
///     Answer expected = model.Apply(command, actual);   // equal, or something is wrong
/// @thread one
class Model {
public:
    /// What stands at a place of the save area in truth: asked for INI documents that nobody was shown at their close.
    using Disk = std::function<std::string(const std::string& place)>;

    /// @param bundle    what the bundle holds.
    /// @param savePath  the areas' full paths; files of a bundle that is an archive are read-only.
    Model(Tree bundle, std::string savePath, std::string bundlePath, bool archive, Disk disk);

    /// Does what a command does.
    /// @param actual  what the built-in has answered; only a changed INI document's text is taken from it, once it says
    ///                the same.
    Answer Apply(const Command& command, const Answer& actual);

    /// Whether a command's outcome follows from the rules: an INI file of odd text has too many, and files that are
    /// written back together in no order must not depend on one.
    [[nodiscard]] bool Knows(const Command& command) const;

    [[nodiscard]] const Tree& Save() const { return m_save; }

    static constexpr int kSlots = 32;  // of each kind; the first is never used

private:
    /// A file in memory, from its open to its close.
    struct File {
        std::string place = {};
        std::string contents = {};
        size_t position = 0;
        bool writes = false;
        bool append = false;
        bool changed = false;
        bool created = false;
    };
    struct TextSlot {
        enum { closed, reading, writing } use = closed;
        File file = {};
    };
    struct BinarySlot {
        bool open = false;
        int mode = 0;
        std::string place = {};
        bool ofBundle = false;  // its path is one of the bundle
        std::optional<File> file = {};
    };
    enum class Start { anew, keeping };

    using Sections = std::map<std::string, std::map<std::string, std::string>>;
    struct Document {
        bool isFile = false;
        bool readable = false;
        bool changed = false;
        std::string place = {};
        std::string original = {};
        Sections sections = {};
    };
    using Arguments = std::vector<Argument>;
    using Handler = std::function<Answer(Model&, const Arguments&)>;
    static const std::map<std::string, Handler>& Handlers();
    static void AddTextHandlers(std::map<std::string, Handler>* handlers);
    static void AddTextOpeners(std::map<std::string, Handler>* handlers);
    static void AddTextReaders(std::map<std::string, Handler>* handlers);
    static void AddTextWriters(std::map<std::string, Handler>* handlers);
    static void AddBinaryHandlers(std::map<std::string, Handler>* handlers);
    static void AddDirectoryHandlers(std::map<std::string, Handler>* handlers);
    static void AddNameHandlers(std::map<std::string, Handler>* handlers);
    static void AddIniHandlers(std::map<std::string, Handler>* handlers);
    static void AddIniChanges(std::map<std::string, Handler>* handlers);
    static void AddIniQuestions(std::map<std::string, Handler>* handlers);
    static void AddSteps(std::map<std::string, Handler>* handlers);

    // --- names and files

    [[nodiscard]] Meaning Means(const Argument& name) const;
    [[nodiscard]] bool Saved(const Meaning& name) const { return name.inSave && m_save.HasFile(name.place); }
    [[nodiscard]] bool Shipped(const Meaning& name) const { return name.inBundle && m_bundle.HasFile(name.place); }
    [[nodiscard]] const std::string* Existing(const Meaning& name) const;
    [[nodiscard]] std::optional<File> OpenToWrite(const std::string& place, bool ofBundle, Start start);
    std::string WriteBack(File* file);
    void GiveUp(File* file);
    [[nodiscard]] bool IsWritten(const std::string& place) const;
    template <class Visit>
    void ForEachFile(Visit visit) const;

    // --- text

    [[nodiscard]] int FreeTextSlot() const;
    Answer OpenText(const std::function<std::optional<File>()>& open, bool toWrite);
    std::optional<File> OpenToAppend(const Meaning& name);
    Answer Read(const Arguments& arguments, const std::function<Answer(File&)>& read);
    Answer Write(const Arguments& arguments, const std::string& text);
    Answer CloseText(int id);

    // --- binary

    [[nodiscard]] BinarySlot* Opened(double id);
    Answer OpenBinary(const Meaning& name, int mode);
    Answer Rewrite(BinarySlot* slot);
    Answer CloseBinary(BinarySlot* slot);

    // --- files and directories

    Answer Rename(const Meaning& from, const Meaning& to);
    Answer Copy(const Meaning& from, const Meaning& to);
    Answer Find(const Meaning& mask, int filter);
    void FindIn(const Tree& tree, const std::string& mask, int filter);
    [[nodiscard]] Answer FoundName() const;

    // --- names as texts

    [[nodiscard]] std::string DirectoryOf(const Argument& name) const;

    // --- INI

    [[nodiscard]] static std::optional<Sections> Parse(const std::string& text);
    [[nodiscard]] std::string IniText(const Meaning& name) const;
    [[nodiscard]] bool IsUnreadable(const Meaning& name) const;
    void OpenIni(const Argument& name);
    std::string CloseIni(const std::optional<std::string>& returned);
    /// @return the value of the section and key that a call names; null where the document has none.
    static const std::string* ValueIn(const Document& document, const Arguments& arguments);
    Answer InDocument(const char* complaint, const std::function<Answer(Document&)>& use);

    Tree m_bundle;
    Tree m_save;
    std::string m_savePath;
    std::string m_bundlePath;
    bool m_archive;
    Disk m_disk;
    std::array<TextSlot, kSlots> m_texts;
    std::array<BinarySlot, kSlots> m_binaries;
    std::vector<std::string> m_found;
    size_t m_at = 0;
    bool m_searching = false;
    std::optional<Document> m_document;
    std::string m_actualText;  // what the built-in has returned now
};

/// @return bytes of the number that a text begins with, 0 for none.
size_t ReadNumber(const std::string& text, double* value);

}  // namespace kx::proof
