// LONG data chains and their buffer pool, types as bind variables and Java see them, the names of
// OCI constants and the dump of UCS-2 text.

#include <malloc.h>

#include <cstdio>
#include <new>

#include "oralayer8.h"
#include "trace.h"

// --- Chains, for both node types -----------------------------------------------------------------

namespace {

template <typename Node>
void add_at_head(Node** head, Node** tail, Node* x) {
  x->next = nullptr;
  x->prev = *head;
  if (*head == nullptr) {
    x->buf_num = 0;
    *tail = x;
  } else {
    x->buf_num = (*head)->buf_num + 1;
    (*head)->next = x;
  }
  *head = x;
}

// The tail must not be null.
template <typename Node>
Node* take_tail(Node** head, Node** tail) {
  Node* taken = *tail;
  *tail = taken->next;
  if (*tail != nullptr) {
    (*tail)->prev = nullptr;
  } else {
    *head = nullptr;
  }
  return taken;
}

// A chain without a tail counts as empty, whatever its head says.
template <typename Node>
void drop_stray_head(Node** head, const char* complaint) {
  if (*head == nullptr) return;
  TRACE(complaint);
  *head = nullptr;
}

constexpr char kStrayHead[] = " --  destroychain:  tail is NULL but head is NOT !!";

}  // namespace

longcol_node::longcol_node() : buf_num(0), coldata(nullptr), next(nullptr), prev(nullptr) {}

void longcol_node::queue(longcol_node** head, longcol_node** tail, longcol_node* x) {
  add_at_head(head, tail, x);
}

longcol_node* longcol_node::dequeue(longcol_node** head, longcol_node** tail) {
  if (*tail != nullptr) return take_tail(head, tail);
  drop_stray_head(head, " --  longcol_node::dequeue:  tail is NULL but head is NOT !!");
  return nullptr;
}

void longcol_node::destroychain(longcol_node** head, longcol_node** tail) {
  if (*tail == nullptr) drop_stray_head(head, kStrayHead);
  while (*tail != nullptr) {
    longcol_node* node = take_tail(head, tail);
    TRACE("--- longcol_node::destroychain  destroy number: ", node->buf_num);
    delete node;
  }
}

longdata_node::longdata_node()
    : next(nullptr), prev(nullptr), buf_size(0), buf_ptr(nullptr), buf_num(0) {}

longdata_node::~longdata_node() {
  TRACE("-- longdata_node destructor, free buffer for buffer: ", "=", buf_num);
  delete[] buf_ptr;
  buf_ptr = nullptr;
}

longdata_node* longdata_node::queue(longdata_node** head, longdata_node** tail, int coldatabufsize,
                                    LongdataBufPool* pool) {
  longdata_node* x = LongdataBufPool::getBuf(coldatabufsize, pool);
  if (x != nullptr) add_at_head(head, tail, x);
  return x;
}

longdata_node* longdata_node::dequeue(longdata_node** head, longdata_node** tail) {
  return *tail == nullptr ? nullptr : take_tail(head, tail);
}

void longdata_node::release(longdata_node* x, LongdataBufPool* pool) {
  if (x == nullptr) return;
  x->buf_size = 0;
  LongdataBufPool::releaseBuf(x, pool);
}

int longdata_node::getlongsize(const longdata_node* x) {
  ub4 total = 0;  // unsigned: a chain beyond 2 GiB must not overflow
  for (; x != nullptr; x = x->next) total += static_cast<ub4>(x->buf_size);
  return static_cast<int>(total);
}

void longdata_node::releasechain(longdata_node** head, longdata_node** tail,
                                 LongdataBufPool* pool) {
  if (*tail == nullptr) drop_stray_head(head, kStrayHead);
  while (*tail != nullptr) {
    longdata_node* node = take_tail(head, tail);
    TRACE("--- longdata_node::releasechain release number: ", node->buf_num);
    release(node, pool);
  }
}

void longdata_node::print(const longdata_node* x) {
  for (; x != nullptr; x = x->next) {
    std::printf(" longdata_node num=%i", x->buf_num);
    std::printf("   size=%i", x->buf_size);
    dump_bytes(" data: ", x->buf_ptr, x->buf_size);
  }
}

// --- Buffer pool ---------------------------------------------------------------------------------

// Without slots the pool still works: nothing is kept.
LongdataBufPool::LongdataBufPool()
    : bufPoolSP(0), bufPool(new (std::nothrow) longdata_node*[kSlots]) {}

LongdataBufPool::~LongdataBufPool() {
  for (int slot = bufPoolSP - 1; slot >= 0; --slot) {
    TRACE("BufPool: checking bufPool entry: ", slot);
    longdata_node* node = bufPool[slot];
    if (node == nullptr) continue;
    TRACE("BufPool: deleteing bufPool entry: ", slot, "  ", node);
    delete node;
  }
  TRACE("BufPool: now delete the bufPool object");
  delete[] bufPool;
}

namespace {

// Gives the node a buffer of at least `size` bytes, or destroys it and returns null. The record has
// no room for a capacity, but the heap knows it: Java may change a cursor's piece length while
// smaller buffers are stacked.
longdata_node* with_room(longdata_node* node, int size) {
  if (node->buf_ptr != nullptr &&
      malloc_usable_size(node->buf_ptr) >= static_cast<std::size_t>(size)) {
    return node;
  }
  delete[] node->buf_ptr;
  // Cleared once: a client library that leaves a piece's length alone shows no stray memory.
  node->buf_ptr = new (std::nothrow) ub1[static_cast<std::size_t>(size)]();
  if (node->buf_ptr != nullptr) return node;
  delete node;
  return nullptr;
}

}  // namespace

longdata_node* LongdataBufPool::getBuf(int size, LongdataBufPool* pool) {
  longdata_node* node = nullptr;
  if (pool->bufPoolSP != 0) {
    TRACE("BufPool:getbuf: bufPoolSP = ", pool->bufPoolSP,
          ", subtract one and return char buf from stack");
    --pool->bufPoolSP;
    node = pool->bufPool[pool->bufPoolSP];
    pool->bufPool[pool->bufPoolSP] = nullptr;
  } else {
    TRACE("BufPool:getbuf: bufPoolSP = ", pool->bufPoolSP, ", return new char buf");
    node = new (std::nothrow) longdata_node;
  }
  if (node == nullptr) return nullptr;
  if (size <= 0) {
    // No piece can be moved through a buffer without room.
    delete node;
    return nullptr;
  }
  return with_room(node, size);
}

void LongdataBufPool::releaseBuf(longdata_node* buffer, LongdataBufPool* pool) {
  // A chain that outlived its cursor's pool gives its nodes back to the heap.
  if (pool == nullptr || pool->bufPool == nullptr || pool->bufPoolSP == kSlots) {
    delete buffer;
    return;
  }
  TRACE("BufPool:releaseBuf: bufPoolSP = ", pool->bufPoolSP,
        ", push char buf onto stack and add one");
  pool->bufPool[pool->bufPoolSP] = buffer;
  ++pool->bufPoolSP;
}

// --- Types of bind variables and columns ---------------------------------------------------------

bool is_integer(int prec, int scale) {
  return static_cast<sb2>(prec) != 0 && static_cast<sb2>(scale) == 0;
}

namespace {

constexpr sword kIntSize = sizeof(sb4);  // an element of long_arr
constexpr sword kFloatSize = sizeof(double);  // an element of double_arr
// What callers are told of a locator's size. The interface reads a pointer of its own width there.
constexpr sword kLocatorSize = 4;

}  // namespace

sword getParamLength(int internaltype, int prec, int scale, sb4 length, ub4) {
  TRACE("*** getParamLength ***");
  switch (static_cast<sb2>(internaltype)) {
    case SQLT_CHR:
    case SQLT_STR:
    case SQLT_AFC:
      // Modulo 2^32, like the unsigned length that it comes from.
      return static_cast<sword>(static_cast<ub4>(length) + 1);
    case SQLT_NUM:
      return is_integer(prec, scale) ? kIntSize : kFloatSize;
    case SQLT_INT:
      return kIntSize;
    case SQLT_FLT:
      return kFloatSize;
    case SQLT_LNG:
    case SQLT_LBI:
    case SQLT_BIN:
      return length;
    case SQLT_RID:
    case SQLT_RDD:
      return kRowidTextSize;
    case SQLT_LAB:
      return kLabelTextSize;
    case SQLT_DAT:
      return DATE_LENGTH;
    case SQLT_CLOB:
    case SQLT_BLOB:
      return kLocatorSize;
    default:
      return 0;
  }
}

sword int2extOciType(int internal_type, int prec, int scale) {
  switch (static_cast<sb2>(internal_type)) {
    case SQLT_CHR:
    case SQLT_STR:
    case SQLT_AFC:
    case SQLT_RID:
    case SQLT_RDD:
    case SQLT_LAB:
      return SQLT_STR;
    case SQLT_NUM:
      return is_integer(prec, scale) ? SQLT_INT : SQLT_FLT;
    case SQLT_INT:
    case SQLT_FLT:
    case SQLT_LNG:
    case SQLT_LBI:
    case SQLT_DAT:
    case SQLT_BIN:
      return static_cast<sb2>(internal_type);
    default:
      return 0;
  }
}

const char* typeName(int type) {
  switch (type) {
    case SQLT_CHR:
      return "VARCHAR2_TYPE";
    case SQLT_NUM:
      return "NUMBER_TYPE";
    case SQLT_INT:
      return "INTEGER_TYPE";
    case SQLT_FLT:
      return "FLOAT_TYPE";
    case SQLT_STR:
      return "STRING_TYPE";
    case SQLT_LNG:
      return "LONG_TYPE";
    case SQLT_RID:
      return "ROWID_TYPE";
    case SQLT_DAT:
      return "DATE_TYPE";
    case SQLT_BIN:
      return "RAW_TYPE";
    case SQLT_LBI:
      return "LONGRAW_TYPE";
    case SQLT_AFC:
      return "CHAR_TYPE";
    case SQLT_RDD:
      return "ROWID_TYPE(SQLT_RDD)";
    case SQLT_LAB:
      return "MLSLABEL_TYPE";
    default:
      return "UKNOWN_TYPE";
  }
}

// --- Names and the UCS-2 dump --------------------------------------------------------------------

const char* pieceName(int type) {
  switch (type) {
    case OCI_ONE_PIECE:
      return "OCI_ONE_PIECE";
    case OCI_FIRST_PIECE:
      return "OCI_FIRST_PIECE";
    case OCI_NEXT_PIECE:
      return "OCI_NEXT_PIECE";
    case OCI_LAST_PIECE:
      return "OCI_LAST_PIECE";
    default:
      return "UNKNOWN PIECE TYPE";
  }
}

const char* bindTypeName(int type) {
  switch (type) {
    case OCI_HTYPE_BIND:
      return "OCI_HTYPE_BIND";
    case OCI_HTYPE_DEFINE:
      return "OCI_HTYPE_DEFINE";
    default:
      return "UNKNOWN BIND TYPE";
  }
}

const char* paramTypeName(int type) {
  switch (type) {
    case OCI_PARAM_IN:
      return "OCI_PARAM_IN";
    case OCI_PARAM_OUT:
      return "OCI_PARAM_OUT";
    default:
      return "UNKNOWN PARAM TYPE";
  }
}

void dump_utext(const char* msg, const utext* buf, int len) {
  dump_units(msg, "    chars:", buf, len);
}
