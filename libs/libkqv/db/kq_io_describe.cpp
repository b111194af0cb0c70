/*
 * kq_io_describe.cpp - the self-description of state objects for a program
 * that displays a database: which object types there are (only the Task),
 * the fields of a type, the description of a field, the named values of the
 * Status, and the value of one field of one object as a host-order number
 * or a text.  Everything here is fixed in the code; the files hold no such
 * table.  The Task value's layout is in kq_state.h.
 *
 * Only kq_GetValueIfIsKnown looks at the handle, for its format version:
 * from version 3 on the Name field reads "second name, separator, name".
 */
#include <algorithm>
#include <array>
#include <cstring>

#include "indgen.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_io_format.h"
#include "kq_byteorder.h"
#include "kq_state.h"

namespace {

/* ---- Fields of the Task --------------------------------------------------- */

constexpr int32_t kFieldStatus = 0;
constexpr int32_t kFieldPriority = 1;
constexpr int32_t kFieldName = 2;

constexpr int32_t kKindInteger = 1;
constexpr int32_t kKindString = 2;

struct FieldRow {
  const char *name;
  int32_t kind;
  int32_t size;
  uint8_t hasNamedValues;
};

/* Indexed by field number. */
constexpr std::array<FieldRow, 3> kTaskFields = {{
    {"Status", kKindInteger, 2, 1},
    {"Priority", kKindInteger, 4, 0},
    {"Name", kKindString, KQ_TASK_NAME_SIZE, 0},
}};

/* ---- Named values of the Status ------------------------------------------- */

struct NamedValue {
  uint16_t value;
  const char *name;
};

constexpr std::array<NamedValue, 5> kStatusNames = {{
    {0, "READY"},
    {1, "SUSPEND"},
    {2, "PEND"},
    {3, "RUNNING"},
    {7, "EVWAIT"},
}};

constexpr uint16_t kPrimaryStatus = 3;

/* Object (type, id) of state, or null when there is none. */
const kq_StateObject *FindObject(const kq_State *state, uint16_t type, uint32_t id) {
  if (state == nullptr || state->table == nullptr) return nullptr;
  kq_StateObject key{type, id, 0, nullptr};
  void *stored = nullptr;
  if (!HT_FindItem(state->table, &key, &stored, nullptr)) return nullptr;
  return static_cast<const kq_StateObject *>(stored);
}

/* A big-endian number of `size` bytes into buffer, in host order. */
void CopyNumber(const uint8_t *field, int size, void *buffer) {
  memcpy(buffer, field, static_cast<size_t>(size));
  Swapif(1, buffer, size);
}

/* The Name field as text into buffer (bufferSize >= 1), NUL-ended.  Up to
 * version 2 the 31 name bytes as they stand, as far as the room goes; from
 * version 3 on the second name (when known), the separator when something
 * precedes it and room is left, then the name. */
void CopyName(const uint8_t *value, uint32_t formatVersion, char *buffer, uint32_t bufferSize,
              char separator) {
  const auto *name = reinterpret_cast<const char *>(value + KQ_TASK_NAME);
  const auto *secondName = reinterpret_cast<const char *>(value + KQ_TASK_SECOND_NAME);
  size_t room = bufferSize - 1;  // one byte stays for the NUL
  size_t n = 0;
  if (formatVersion < KQ_FIRST_VERSION_WITH_SECOND_NAME) {
    n = std::min<size_t>(room, KQ_TASK_NAME_SIZE);
    memcpy(buffer, name, n);
    buffer[n] = '\0';
    return;
  }
  if (value[KQ_TASK_SECOND_NAME_KNOWN] != 0) {
    n = std::min(strnlen(secondName, KQ_TASK_NAME_SIZE), room);
    memcpy(buffer, secondName, n);
    room -= n;
  }
  if (room != 0 && n != 0) {
    buffer[n++] = separator;
    room--;
  }
  const size_t nameLength = std::min(strnlen(name, KQ_TASK_NAME_SIZE), room);
  memcpy(buffer + n, name, nameLength);
  buffer[n + nameLength] = '\0';
}

}  // namespace

/* ---- Types and fields --------------------------------------------------------- */

extern "C" const char *kq_GetObjectTypeName(kq_DB *db, uint16_t type) {
  return type == KQ_TYPE_TASK ? "Task" : nullptr;
}

extern "C" void kq_GetFieldsInObjectType(kq_DB *db, uint16_t type, int32_t **fields,
                                         uint32_t *count) {
  if (type != KQ_TYPE_TASK) return;
  if (fields != nullptr) {
    *fields = static_cast<int32_t *>(gen_alloc(kTaskFields.size(), sizeof(int32_t)));
    for (size_t i = 0; i < kTaskFields.size(); i++) (*fields)[i] = static_cast<int32_t>(i);
  }
  if (count != nullptr) *count = static_cast<uint32_t>(kTaskFields.size());
}

extern "C" kq_FieldDesc *kq_GetFieldDesc(kq_DB *db, uint16_t type, int32_t field) {
  if (field < 0 || static_cast<size_t>(field) >= kTaskFields.size()) return nullptr;
  const FieldRow &row = kTaskFields[static_cast<size_t>(field)];
  auto *desc = static_cast<kq_FieldDesc *>(gen_alloc(1, sizeof(kq_FieldDesc)));
  desc->name = gen_copy(row.name);
  desc->kind = row.kind;
  desc->size = row.size;
  desc->hasNamedValues = row.hasNamedValues;
  return desc;
}

extern "C" void kq_DeleteFieldDesc(kq_FieldDesc *desc) {
  if (desc == nullptr) return;
  gen_free(desc->name);
  gen_free(desc);
}

/* ---- Named values --------------------------------------------------------------- */

extern "C" void kq_GetNamedValues(kq_DB *db, uint16_t type, int32_t field, uint16_t **values,
                                  uint32_t *count) {
  if (field != kFieldStatus) {
    if (count != nullptr) *count = 0;
    return;
  }
  if (values == nullptr) return;
  *values = static_cast<uint16_t *>(gen_alloc(kStatusNames.size(), sizeof(uint16_t)));
  for (size_t i = 0; i < kStatusNames.size(); i++) (*values)[i] = kStatusNames[i].value;
  if (count != nullptr) *count = static_cast<uint32_t>(kStatusNames.size());
}

extern "C" const char *kq_GetNameOfValue(kq_DB *db, uint16_t type, int32_t field,
                                         const uint16_t *value) {
  if (field != kFieldStatus || value == nullptr) return nullptr;
  for (const NamedValue &row : kStatusNames) {
    if (row.value == *value) return row.name;
  }
  return nullptr;
}

extern "C" int kq_IsPrimaryValue(kq_DB *db, uint16_t type, int32_t field, const uint16_t *value) {
  return field == kFieldStatus && value != nullptr && *value == kPrimaryStatus ? 1 : 0;
}

/* ---- Values of objects ------------------------------------------------------------ */

extern "C" int kq_GetValueIfIsKnown(kq_DB *db, kq_State *state, uint16_t type, uint32_t id,
                                    int32_t field, uint8_t *isKnown, void *buffer,
                                    uint32_t bufferSize, char separator) {
  uint8_t scratch = 0;
  if (isKnown == nullptr) isKnown = &scratch;
  *isKnown = 0;
  const kq_StateObject *object = FindObject(state, type, id);
  if (object == nullptr) return 0;
  /* A value cut short (a damaged database can hold one) has no known field. */
  if (object->value == nullptr || object->length < KQ_TASK_VALUE_SIZE || buffer == nullptr) {
    return 1;
  }
  const uint8_t *value = object->value;

  switch (field) {
    case kFieldStatus:
      if (value[KQ_TASK_STATUS_KNOWN] != 0 && bufferSize >= 2) {
        CopyNumber(value + KQ_TASK_STATUS, 2, buffer);
        *isKnown = 1;
      }
      break;
    case kFieldPriority:
      if (value[KQ_TASK_PRIORITY_KNOWN] != 0 && bufferSize >= 4) {
        CopyNumber(value + KQ_TASK_PRIORITY, 4, buffer);
        *isKnown = 1;
      }
      break;
    case kFieldName:
      if (value[KQ_TASK_NAME_KNOWN] != 0 && bufferSize >= 1) {
        const uint32_t version = db != nullptr ? db->formatVersion : 0;
        CopyName(value, version, static_cast<char *>(buffer), bufferSize, separator);
        *isKnown = 1;
      }
      break;
    default:
      break;
  }
  return 1;
}
