// new and delete over malloc and free. mimalloc brings its own, which end the program where memory runs out; a script
// has to get an error then, and its files have to be written.
#include <cstdlib>
#include <new>

void* operator new(size_t size) {
    void* block = std::malloc(size ? size : 1);
    if (!block) throw std::bad_alloc();
    return block;
}

void* operator new[](size_t size) {
    return operator new(size);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, size_t) noexcept {
    std::free(block);
}

void operator delete[](void* block) noexcept {
    std::free(block);
}

void operator delete[](void* block, size_t) noexcept {
    std::free(block);
}
