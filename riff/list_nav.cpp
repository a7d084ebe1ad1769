// The reader's stack of open RIFF lists: entering, stepping, leaving.
#include "kelqavi.h"
#include "riff/riff_layout.h"
#include "riff/le_bytes.h"
#include "riff/stream_buffer.h"

#include <cstdlib>

namespace {

using kelq::chunk_header_size;
using kelq::list_header_size;

}  // namespace

extern "C" {

list_node *new_list(list_node *parent, FILE *stream) {
    if (stream == nullptr) return nullptr;
    auto *node = static_cast<list_node *>(std::malloc(sizeof(list_node)));
    if (node == nullptr) return nullptr;
    uint32_t size = 0;
    node->parent = parent;
    node->stream = stream;
    node->start = file_tell(stream);
    node->id = 0;
    node->type = 0;
    int status = read_fourCC(&node->id, stream);
    status |= read_val32(&size, stream);
    status |= read_fourCC(&node->type, stream);
    node->status = static_cast<uint32_t>(status);
    node->size = size;
    node->next_pos = file_tell(stream);
    node->depth = parent != nullptr ? parent->depth + 1 : 1;
    if (node->status != 0) {
        std::free(node);
        return nullptr;
    }
    return node;
}

uint32_t next_chunk_in_list(list_node *node) {
    if (node == nullptr) return 0;
    FILE *stream = node->stream;
    uint32_t id = 0, size = 0;
    int status = file_seek(stream, node->next_pos, 0);
    uint8_t header[chunk_header_size];
    // Looked at in the buffer when it holds the whole header: the same as
    // reading it and seeking back, without moving the stream at all.
    if (status == 0 && kelq::buffered_peek(stream, header, sizeof header)) {
        id = kelq::load_le<uint32_t>(header);
        size = kelq::load_le<uint32_t>(header + kelq::chunk_id_size);
    } else {
        status |= read_fourCC(&id, stream);
        status |= read_val32(&size, stream);
        status |= file_seek(stream, node->next_pos, 0);
    }
    const int64_t padded = padEven(static_cast<int64_t>(size));
    node->next_pos = file_tell(stream) + padded + chunk_header_size;
    node->status |= static_cast<uint32_t>(status);
    return id;
}

int end_of_list(list_node *node) {
    if (node == nullptr) return 1;
    const int64_t position = file_tell(node->stream);
    if (position < 0) return 1;
    return position >= node->start + static_cast<int64_t>(node->size) ? 1 : 0;
}

int skip_list(list_node *node) {
    if (node == nullptr) return 1;
    return file_seek(node->stream, node->start + static_cast<int64_t>(node->size) + chunk_header_size, 0);
}

list_node *ascend_list(list_node *node) {
    if (node == nullptr) return nullptr;
    list_node *parent = node->parent;
    std::free(node);
    return parent;
}

void delete_list_recursive(list_node *node) {
    while (node != nullptr) node = ascend_list(node);
}

int chunk_look_ahead(FILE *stream, uint32_t *id, uint32_t *size, uint32_t *type, uint32_t *status) {
    int reads = read_fourCC(id, stream);
    reads |= read_val32(size, stream);
    reads |= read_fourCC(type, stream);
    if (status != nullptr) *status |= static_cast<uint32_t>(reads);
    return file_seek(stream, -list_header_size, 1);
}

}  // extern "C"
