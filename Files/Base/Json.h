#pragma once

#include <json-c/json.h>
#include <utility>

/// json-c as the host and the module use it: who owns a tree, and what no memory looks like.
///
///     kx::JsonTree list(kx::MadeJson(json_object_new_array()));
///     kx::AddElement(list, kx::JsonTree(EncodeValue(&value)));   // released on the way, whatever is thrown
///     KXCreateString(&result, kx::PrintJson(list.Get()));
///
/// A JSON null is a null pointer, inside a tree and as a whole one.
/// @thread any; a tree is one thread's.
namespace kx {

/// Owns a json-c tree; null for none, and for a JSON null.
class JsonTree {
public:
    explicit JsonTree(json_object* tree = nullptr) : m_tree(tree) {}
    JsonTree(JsonTree&& other) noexcept : m_tree(other.Release()) {}
    JsonTree(const JsonTree&) = delete;
    JsonTree& operator=(const JsonTree&) = delete;
    JsonTree& operator=(JsonTree&& other) noexcept {
        std::swap(m_tree, other.m_tree);
        return *this;
    }
    ~JsonTree() { json_object_put(m_tree); }

    [[nodiscard]] json_object* Get() const { return m_tree; }
    json_object* Release() { return std::exchange(m_tree, nullptr); }

private:
    json_object* m_tree;
};

/// A JSON null: json_object_new_null, which versions before 0.14 do not have, gives the same.
inline json_object* JsonNull() {
    return nullptr;
}

/// What json-c has made, which the caller owns.
/// @param made  a value other than JSON null; null is how json-c says that there is no memory.
/// @throws std::bad_alloc
json_object* MadeJson(json_object* made);

/// A JSON string of a text, which the caller owns.
/// @throws std::bad_alloc, also for a text of kx::kMaxJsonText bytes or more.
json_object* MadeJsonText(const char* text);

/// What a value takes in a tree at most, in bytes, its text not counted, and what a container takes besides: a table
/// with room for 16 members.
constexpr unsigned long long kJsonValueBytes = 36 * sizeof(void*);
constexpr unsigned long long kJsonContainerBytes = 128 * sizeof(void*);

/// For whoever builds a tree that would take more than kx::kMaxJsonBytes.
/// @throws std::length_error
[[noreturn]] void RefuseJson();

/// json_object_object_add and json_object_array_add, of a value that the tree owns afterwards.
/// @throws std::bad_alloc, also for a name of kx::kMaxJsonText bytes or more.
void AddMember(const JsonTree& object, const char* name, JsonTree value);
void AddElement(const JsonTree& array, JsonTree value);

/// json_object_to_json_string, the same in every locale. A text that would be too large to be read back is given all
/// the same, with a line on dbg_csol.
/// @return the text, which belongs to the tree and lives until it is printed again.
/// @throws std::bad_alloc, also from kx::kMaxJsonText bytes on: never gives a text with pieces missing.
const char* PrintJson(json_object* tree);

enum class JsonVerdict {
    read,
    malformed,
    tooLarge,  ///< not even parsed: it could need more than kx::kMaxJsonBytes; a line on dbg_csol says so
};

/// json_tokener_parse.
///
/// json-c takes a hundred times a text's size for what a few brackets stand for, hence the limit. A text that ends
/// inside a comment, within a container, counts as malformed here; json-c gives a value from inside.
/// @param text  may be null, which is no JSON.
/// @param tree  set to what was read; a JSON null is a null pointer. As it was where nothing was read.
/// @throws std::bad_alloc
JsonVerdict ParseJson(const char* text, JsonTree* tree);

}  // namespace kx
