// Built several times, with other flags each time: CALLER names the build.

#include "comm_list/list_caller.h"

#define CALLER_NAME_OF(caller) list_caller_##caller
#define CALLER_NAME(caller) CALLER_NAME_OF(caller)
#define CALLER_TEXT_OF(caller) #caller
#define CALLER_TEXT(caller) CALLER_TEXT_OF(caller)

// The sanitizer would report the null list itself, before the list can.
#if defined(__clang__)
#define NO_NULL_SANITIZER __attribute__((no_sanitize("undefined")))
#else
#define NO_NULL_SANITIZER __attribute__((no_sanitize_undefined))
#endif

namespace {

NO_NULL_SANITIZER void AddToNull() {
    CCommList<EventItem_t>* list = nullptr;
    list->AddTail(EventItem_t());
}

NO_NULL_SANITIZER void RemoveFromNull() {
    CCommList<EventItem_t>* list = nullptr;
    list->RemoveHead();
}

NO_NULL_SANITIZER void EmptyNull() {
    CCommList<unsigned int>* list = nullptr;
    list->RemoveAll();
}

void RemoveFromEmpty() {
    CCommList<RecordItem_t> list;
    list.RemoveHead();
}

NO_NULL_SANITIZER void AddToNullLateKnown(CCommList<EventItem_t>* list) {
    list->AddTail(EventItem_t());
}

NO_NULL_SANITIZER void AddToNullOwnElement(CCommList<Pair>* list) {
    list->AddTail(Pair());
}

} // namespace

const ListCaller CALLER_NAME(CALLER) = {CALLER_TEXT(CALLER), AddToNull,       RemoveFromNull,
                                        EmptyNull,           RemoveFromEmpty, AddToNullLateKnown,
                                        AddToNullOwnElement};
