#ifndef TESTS_COMM_LIST_LIST_CALLER_H
#define TESTS_COMM_LIST_LIST_CALLER_H

#include "search_records.h"

/// An element that the library has no instance of.
struct Pair {
    int first;
    int second;
};

/// Wrong uses of a list, as a caller's own program would contain them.
struct ListCaller {
    const char* name;
    void (*addToNull)();
    void (*removeFromNull)();
    void (*emptyNull)();
    void (*removeFromEmpty)();
    void (*addToNullLateKnown)(CCommList<EventItem_t>* list);
    void (*addToNullOwnElement)(CCommList<Pair>* list);
};

extern const ListCaller list_caller_plain;
extern const ListCaller list_caller_optimised;
extern const ListCaller list_caller_release;

#endif // TESTS_COMM_LIST_LIST_CALLER_H
