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

uci_context *implicit_context = nullptr;

// UCI_LOOKUP_COMPLETE: the whole path exists. C++ would look for libuci's name inside the record that declares it.
constexpr unsigned LOOKUP_COMPLETE = 1u << 1;

// A place in the configuration, as libuci sees it. libuci cuts the path text into the pieces that the uci_ptr then
// points at, so the text lives as long as the place.
class Place {
public:
    Place(uci_context *context, const char *path) : text_(strdup(path)) { look_up(context); }
    Place(uci_context *context, const char *package, const char *section, const char *option)
        : text_(join(package, section, option)) {
        look_up(context);
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

    void look_up(uci_context *context) {
        if (context == nullptr) {
            error_ = UCI_ERR_INVAL;
        } else if (text_ == nullptr) {
            error_ = UCI_ERR_MEM;
        } else {
            error_ = uci_lookup_ptr(context, &ptr_, text_.get(), true);
        }
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

int delete_place(uci_context *context, Place &place) {
    if (place.error() != UCI_OK) {
        return place.error();
    }
    return place.complete() ? uci_delete(context, place.ptr()) : UCI_ERR_NOTFOUND;
}

int set_place(uci_context *context, Place &place, const char *value) {
    if (place.error() != UCI_OK) {
        return place.error();
    }
    if (value == nullptr) {
        return place.complete() ? uci_delete(context, place.ptr()) : UCI_OK;
    }
    place.ptr()->value = value;
    return uci_set(context, place.ptr());
}

} // namespace

uci_context *vuci2_init() {
    return uci_alloc_context();
}

void vuci2_free(uci_context *handle) {
    if (handle != nullptr) {
        uci_free_context(handle);
    }
}

void vuci2_get(uci_context *handle, const char *path, std::span<char> out) {
    copy_plain_value(Place(handle, path), out);
}

void vuci2_get_name(uci_context *handle, const char *package, const char *section, const char *option,
                    std::span<char> out) {
    const Place place(handle, package, section, option);
    if (option != nullptr) {
        copy_plain_value(place, out);
    } else if (place.section() != nullptr) {
        text_copy(out, place.section()->type);
    }
}

void vuci2_get_list_index(uci_context *handle, const char *path, int index, std::span<char> out) {
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

int vuci2_set(uci_context *handle, const char *path, const char *value) {
    Place place(handle, path);
    return set_place(handle, place, value);
}

int vuci2_set_name(uci_context *handle, const char *package, const char *section, const char *option,
                   const char *value) {
    Place place(handle, package, section, option);
    return set_place(handle, place, value);
}

int vuci2_add_list(uci_context *handle, const char *path, const char *value) {
    if (value == nullptr) {
        return UCI_OK;
    }
    Place place(handle, path);
    if (place.error() != UCI_OK) {
        return place.error();
    }
    place.ptr()->value = value;
    return uci_add_list(handle, place.ptr());
}

int vuci2_delete(uci_context *handle, const char *path) {
    Place place(handle, path);
    return delete_place(handle, place);
}

int vuci2_commit(uci_context *handle, const char *package) {
    Place place(handle, package);
    if (place.error() != UCI_OK) {
        return place.error();
    }
    return uci_commit(handle, &place.ptr()->p, false);
}

void vuci_init() {
    vuci_free();
    implicit_context = vuci2_init();
}

int vuci_set(const char *path, const char *value) {
    return vuci2_set(implicit_context, path, value);
}

int vuci_set_name(const char *package, const char *section, const char *option, const char *value) {
    return vuci2_set_name(implicit_context, package, section, option, value);
}

int vuci_delete(const char *path) {
    return vuci2_delete(implicit_context, path);
}

int vuci_commit(const char *package) {
    return vuci2_commit(implicit_context, package);
}

void vuci_free() {
    vuci2_free(implicit_context);
    implicit_context = nullptr;
}
