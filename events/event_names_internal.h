#ifndef QUELVANE_EVENT_NAMES_INTERNAL_H
#define QUELVANE_EVENT_NAMES_INTERNAL_H

// The event numbers and the words by which the daemon names them on the wire.
// A row's position is its event number: the index of the callback table, the
// argument of registerEventCallback and the result of getEventType.

struct EventNameRow
{
    const char* name;   // the event word
    int length;         // its length, the extent of getEventType's comparison
};

// 32 rows, then a closing row with a null name and length 0 that no search
// reaches (searches stop at EVENTS_MAX_TYPES).
extern const EventNameRow EventNamesP[33];

#endif
