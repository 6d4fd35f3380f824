// UCI configuration over libuci; see uci.h for the contracts.
#include "platform/uci.h"

#include <cstdlib>
#include <cstring>

extern "C" {
#include <uci.h>
}

#include "platform/owners.h"
#include "platform/text.h"

namespace {

UciHandle *implicit_handle = nullptr;

// UCI_LOOKUP_COMPLETE: the whole path exists. C++ would look for libuci's name inside the record that declares it.
constexpr unsigned LOOKUP_COMPLETE = 1u << 1;

// Errors that say nothing about what is configured. After one of them the next call may succeed.
bool is_trouble(int error) {
    return error == UCI_ERR_MEM || error == UCI_ERR_IO;
}

int noted(UciHandle *handle, int error) {
    if (handle != nullptr && handle->trouble == UCI_OK && is_trouble(error)) {
        handle->trouble = error;
    }
    return error;
}

// A place in the configuration, as libuci sees it. libuci cuts the path text into the pieces that the uci_ptr then
// points at, so the text lives as long as the place.
class Place {
public:
    Place(UciHandle *handle, const char *path) : text_(strdup(path)) { look_up(handle); }
    Place(UciHandle *handle, const char *package, const char *section, const char *option)
        : text_(join(package, section, option)) {
        look_up(handle);
    }

    int error() const { return error_; }
    bool complete() const { return error_ == UCI_OK && (static_cast<unsigned>(ptr_.flags) & LOOKUP_COMPLETE) != 0; }
    uci_ptr *ptr() { return &ptr_; }

    // The section or the option that the path names; null where there is none.
    const uci_section *section() const { return complete() && ptr_.last->type == UCI_TYPE_SECTION ? ptr_.s : nullptr; }
    const uci_option *option() const { return complete() && ptr_.last->type == UCI_TYPE_OPTION ? ptr_.o : nullptr; }

private:
    static char *join(const char *package, const char *section, const char *option) {
        const size_t size = strlen(package) + strlen(section) + (option != nullptr ? strlen(option) : 0) + sizeof "..";
        char *path = static_cast<char *>(malloc(size));
        if (path != nullptr) {
            if (option != nullptr) {
                text_format({path, size}, "%s.%s.%s", package, section, option);
            } else {
                text_format({path, size}, "%s.%s", package, section);
            }
        }
        return path;
    }

    void look_up(UciHandle *handle) {
        if (handle == nullptr) {
            error_ = UCI_ERR_INVAL;
        } else if (text_ == nullptr) {
            error_ = UCI_ERR_MEM;
        } else {
            error_ = uci_lookup_ptr(handle->context, &ptr_, text_.get(), true);
        }
        noted(handle, error_);
    }

    Allocated<char> text_;
    uci_ptr ptr_ = {};
    int error_ = UCI_OK;
};

void copy_plain_value(const Place &place, std::span<char> out) {
    const uci_option *option = place.option();
    if (option != nullptr && option->type == UCI_TYPE_STRING) {
        text_copy(out, option->v.string);
    }
}

int delete_place(UciHandle *handle, Place &place) {
    if (place.error() != UCI_OK) {
        return place.error();
    }
    return place.complete() ? noted(handle, uci_delete(handle->context, place.ptr())) : UCI_ERR_NOTFOUND;
}

int set_place(UciHandle *handle, Place &place, const char *value) {
    if (place.error() != UCI_OK) {
        return place.error();
    }
    if (value == nullptr) {
        return place.complete() ? noted(handle, uci_delete(handle->context, place.ptr())) : UCI_OK;
    }
    place.ptr()->value = value;
    return noted(handle, uci_set(handle->context, place.ptr()));
}

} // namespace

UciHandle *vuci2_init() {
    auto *const handle = static_cast<UciHandle *>(calloc(1, sizeof(UciHandle)));
    if (handle == nullptr) {
        return nullptr;
    }
    handle->context = uci_alloc_context();
    if (handle->context == nullptr) {
        free(handle);
        return nullptr;
    }
    return handle;
}

void vuci2_free(UciHandle *handle) {
    if (handle != nullptr) {
        uci_free_context(handle->context);
        free(handle);
    }
}

void vuci2_get(UciHandle *handle, const char *path, std::span<char> out) {
    copy_plain_value(Place(handle, path), out);
}

void vuci2_get_name(UciHandle *handle, const char *package, const char *section, const char *option,
                    std::span<char> out) {
    const Place place(handle, package, section, option);
    if (option != nullptr) {
        copy_plain_value(place, out);
    } else if (place.section() != nullptr) {
        text_copy(out, place.section()->type);
    }
}

void vuci2_get_list_index(UciHandle *handle, const char *path, int index, std::span<char> out) {
    const Place place(handle, path);
    const uci_option *option = place.option();
    if (option == nullptr || option->type != UCI_TYPE_LIST || index < 0) {
        return;
    }
    uci_element *item;
    uci_foreach_element(&option->v.list, item) {
        if (index-- == 0) {
            text_copy(out, item->name);
            return;
        }
    }
}

int vuci2_set(UciHandle *handle, const char *path, const char *value) {
    Place place(handle, path);
    return set_place(handle, place, value);
}

int vuci2_set_name(UciHandle *handle, const char *package, const char *section, const char *option, const char *value) {
    Place place(handle, package, section, option);
    return set_place(handle, place, value);
}

int vuci2_add_list(UciHandle *handle, const char *path, const char *value) {
    if (value == nullptr) {
        return UCI_OK;
    }
    Place place(handle, path);
    if (place.error() != UCI_OK) {
        return place.error();
    }
    place.ptr()->value = value;
    return noted(handle, uci_add_list(handle->context, place.ptr()));
}

int vuci2_delete(UciHandle *handle, const char *path) {
    Place place(handle, path);
    return delete_place(handle, place);
}

int vuci2_commit(UciHandle *handle, const char *package) {
    Place place(handle, package);
    if (handle != nullptr && handle->trouble != UCI_OK) {
        return handle->trouble;
    }
    if (place.error() != UCI_OK) {
        return place.error();
    }
    return uci_commit(handle->context, &place.ptr()->p, false);
}

void vuci_init() {
    vuci_free();
    implicit_handle = vuci2_init();
}

int vuci_set(const char *path, const char *value) {
    return vuci2_set(implicit_handle, path, value);
}

int vuci_set_name(const char *package, const char *section, const char *option, const char *value) {
    return vuci2_set_name(implicit_handle, package, section, option, value);
}

int vuci_delete(const char *path) {
    return vuci2_delete(implicit_handle, path);
}

int vuci_commit(const char *package) {
    return vuci2_commit(implicit_handle, package);
}

void vuci_free() {
    vuci2_free(implicit_handle);
    implicit_handle = nullptr;
}
