"""kqv: read the event databases that ravelog writes, from Python.

Pure Python over the shared libkqv (ctypes), with nothing outside the
standard library:

    import kqv
    with kqv.open("/tmp/sample") as db:
        print(db.event_count, db.time_extent, db.ticks_per_second, db.byte_order)
        for event in db.events(start=0, end=100000):
            print(event.number, event.time, event.name, event.owner_id, event.payload.hex())
        for obj in db.state_at(5000):
            print(obj.type, hex(obj.id), obj.name, obj.status, obj.priority)

Events are numbered from 0 in database order; times are ticks.  Every
failure raises kqv.Error with the library's message; nothing here can crash
the interpreter on a damaged database, since the library checks every
length it reads.

The shared library is found at KQV_LIBRARY when that is set, else beside the
installed package (lib/python3/dist-packages/kqv -> lib/libkqv.so.1), else
by the system's search ("libkqv.so.1").
"""
import ctypes
import ctypes.util
import os

__all__ = ["Error", "Database", "Event", "Object", "open"]


class Error(Exception):
    """A database that can't be opened or read."""


# ---- The library ------------------------------------------------------------


class _CursorEvent(ctypes.Structure):
    _fields_ = [("number", ctypes.c_uint64), ("time", ctypes.c_uint64),
                ("type", ctypes.c_uint16), ("subtype", ctypes.c_uint16),
                ("hasOwner", ctypes.c_uint8), ("ownerType", ctypes.c_uint16),
                ("ownerId", ctypes.c_uint32), ("length", ctypes.c_uint32),
                ("payload", ctypes.POINTER(ctypes.c_uint8)), ("numChanges", ctypes.c_uint32),
                ("changes", ctypes.POINTER(ctypes.c_uint8)), ("changesLength", ctypes.c_uint32)]


class _Event(ctypes.Structure):  # kq_Event, for the library's names
    _fields_ = [("time", ctypes.c_uint64), ("eventNumber", ctypes.c_uint32),
                ("type", ctypes.c_uint16), ("subtype", ctypes.c_uint16),
                ("length", ctypes.c_uint32), ("data", ctypes.c_void_p),
                ("changes", ctypes.c_void_p)]


class _State(ctypes.Structure):  # kq_State
    _fields_ = [("table", ctypes.c_void_p)]


class _StateObject(ctypes.Structure):  # kq_StateObject
    _fields_ = [("type", ctypes.c_uint16), ("id", ctypes.c_uint32),
                ("length", ctypes.c_uint32), ("value", ctypes.c_void_p)]


_VISIT = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p)


def _library_path():
    chosen = os.environ.get("KQV_LIBRARY")
    if chosen:
        return chosen
    try:
        from . import _location
        beside = os.path.normpath(os.path.join(os.path.dirname(__file__), _location.LIBRARY))
        if os.path.exists(beside):
            return beside
    except ImportError:
        pass
    return ctypes.util.find_library("kqv") or "libkqv.so.1"


def _load():
    try:
        lib = ctypes.CDLL(_library_path())
    except OSError as error:
        raise Error("Can't load libkqv: %s" % error) from None
    p, u8, u16, u32, u64, i = (ctypes.c_void_p, ctypes.c_uint8, ctypes.c_uint16,
                               ctypes.c_uint32, ctypes.c_uint64, ctypes.c_int)
    signatures = {
        "kq_OpenForUse": (p, [ctypes.c_char_p]),
        "kq_Close": (None, [p]),
        "kq_GetTimeExtent": (i, [p, ctypes.POINTER(u64), ctypes.POINTER(u64)]),
        "kq_GetStartEventAndNumEvents": (i, [p, ctypes.POINTER(u32), ctypes.POINTER(u32)]),
        "kq_GetNumTicksPerSecond": (u64, [p]),
        "kq_IsBigEndian": (i, [p]),
        "kq_GetNameOfConfigFile": (ctypes.c_char_p, [p]),
        "kq_NewCursor": (p, [p, i]),
        "kq_DeleteCursor": (None, [p]),
        "kq_CursorSeekTime": (i, [p, u64]),
        "kq_CursorNext": (i, [p, ctypes.POINTER(ctypes.POINTER(_CursorEvent))]),
        "kq_CursorError": (ctypes.c_char_p, [p]),
        "kq_GetNameOfEvent": (ctypes.c_char_p, [p, ctypes.POINTER(_Event)]),
        "kq_GetServiceName": (ctypes.c_char_p, [p, u16]),
        "kq_GetStatusName": (ctypes.c_char_p, [p, u16]),
        "kq_GetStateAndIterFromTime": (i, [p, u64, p, ctypes.POINTER(ctypes.POINTER(_State))]),
        "kq_DeleteState": (None, [ctypes.POINTER(_State)]),
        "kq_GetValueIfIsKnown": (i, [p, ctypes.POINTER(_State), u16, u32, ctypes.c_int32,
                                     ctypes.POINTER(u8), p, u32, ctypes.c_char]),
        "HT_ForEach": (i, [p, _VISIT, p]),
    }
    for name, (restype, argtypes) in signatures.items():
        function = getattr(lib, name)
        function.restype = restype
        function.argtypes = argtypes
    return lib


_lib = None


def _library():
    global _lib
    if _lib is None:
        _lib = _load()
    return _lib


def _text(raw):
    return raw.decode("latin-1") if raw is not None else None


# ---- What a database holds ----------------------------------------------------


class Event:
    """One event: number (from 0), time (ticks), type, subtype, name, owner_id
    (the Task whose id the payload's first four bytes hold; None without)
    and payload (bytes, in the target's byte order)."""
    __slots__ = ("number", "time", "type", "subtype", "name", "owner_id", "payload")

    def __init__(self, number, time, type, subtype, name, owner_id, payload):
        self.number, self.time, self.type, self.subtype = number, time, type, subtype
        self.name, self.owner_id, self.payload = name, owner_id, payload

    def __repr__(self):
        return "Event(%d, time=%d, %r)" % (self.number, self.time, self.name)


class Object:
    """One object of a state: type, id, name, status (by name) and priority;
    each None when the database doesn't know it."""
    __slots__ = ("type", "id", "name", "status", "priority")

    def __init__(self, type, id, name, status, priority):
        self.type, self.id, self.name, self.status, self.priority = type, id, name, status, priority

    def __repr__(self):
        return "Object(%d, 0x%08x, %r, %r)" % (self.type, self.id, self.name, self.status)


class Database:
    """A database open for reading; a context manager.  close() ends it."""

    def __init__(self, path):
        self._lib = _library()
        self._path = os.fspath(path)
        for suffix in (".kqv", ".kqs", ".kqi"):
            if self._path.endswith(suffix):
                self._path = self._path[:-len(suffix)]
        self._db = self._lib.kq_OpenForUse(self._path.encode())
        if not self._db:
            raise Error("Can't open database \"%s\" (its .kqv, .kqs and .kqi files)." % self._path)
        self._names = {}

    def close(self):
        if getattr(self, "_db", None):
            self._lib.kq_Close(self._db)
            self._db = None

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.close()
        return False

    def __del__(self):
        self.close()

    def _handle(self):
        if not self._db:
            raise Error("The database \"%s\" is closed." % self._path)
        return self._db

    @property
    def event_count(self):
        count = ctypes.c_uint32(0)
        self._lib.kq_GetStartEventAndNumEvents(self._handle(), None, ctypes.byref(count))
        return count.value

    @property
    def time_extent(self):
        """(start, end) in ticks: end lies one tick behind the last event."""
        start, end = ctypes.c_uint64(0), ctypes.c_uint64(0)
        self._lib.kq_GetTimeExtent(self._handle(), ctypes.byref(start), ctypes.byref(end))
        return start.value, end.value

    @property
    def ticks_per_second(self):
        return self._lib.kq_GetNumTicksPerSecond(self._handle())

    @property
    def byte_order(self):
        return "big" if self._lib.kq_IsBigEndian(self._handle()) else "little"

    @property
    def config(self):
        return _text(self._lib.kq_GetNameOfConfigFile(self._handle()))

    def _event_name(self, type, subtype):
        key = (type, subtype)
        if key not in self._names:
            service = self._lib.kq_GetServiceName(self._db, subtype) if type == 3 else None
            if service is not None:
                self._names[key] = "Kernel Call: " + _text(service)
            else:
                event = _Event(type=type, subtype=subtype)
                self._names[key] = _text(self._lib.kq_GetNameOfEvent(self._db, ctypes.byref(event)))
        return self._names[key]

    def events(self, start=None, end=None):
        """The events with start <= time < end (each bound optional), in
        database order, read through the library's streaming cursor."""
        cursor = self._lib.kq_NewCursor(self._handle(), 0)
        if not cursor:
            raise Error("Can't read the events of \"%s\"." % self._path)
        try:
            if start is not None:
                self._lib.kq_CursorSeekTime(cursor, start)
            view = ctypes.POINTER(_CursorEvent)()
            step_on = self._lib.kq_CursorNext
            where = ctypes.byref(view)
            string_at = ctypes.string_at
            name_of = self._event_name
            names = self._names
            while True:
                step = step_on(cursor, where)
                if step <= 0:
                    if step < 0:
                        raise Error("Database \"%s\" is damaged: %s." %
                                    (self._path, _text(self._lib.kq_CursorError(cursor))))
                    return
                e = view[0]
                time = e.time
                if end is not None and time >= end:
                    return
                type, subtype, length = e.type, e.subtype, e.length
                name = names.get((type, subtype)) or name_of(type, subtype)
                yield Event(e.number, time, type, subtype, name,
                            e.ownerId if e.hasOwner else None,
                            string_at(e.payload, length) if length else b"")
        finally:
            self._lib.kq_DeleteCursor(cursor)

    def state_at(self, time):
        """Every object as it stands just before the first event at or after
        `time`, in rising order of (type, id)."""
        state = ctypes.POINTER(_State)()
        if not self._lib.kq_GetStateAndIterFromTime(self._handle(), time, None, ctypes.byref(state)):
            raise Error("Can't read the state of \"%s\"." % self._path)
        try:
            keys = []

            def visit(key, value, context):
                obj = ctypes.cast(key, ctypes.POINTER(_StateObject)).contents
                keys.append((obj.type, obj.id))
                return 1

            self._lib.HT_ForEach(state.contents.table, _VISIT(visit), None)
            return [self._object(state, type, id) for type, id in sorted(keys)]
        finally:
            self._lib.kq_DeleteState(state)

    def _object(self, state, type, id):
        def field(number, ctype):
            value, known = ctype(), ctypes.c_uint8(0)
            if not self._lib.kq_GetValueIfIsKnown(self._db, state, type, id, number,
                                                  ctypes.byref(known), ctypes.byref(value),
                                                  ctypes.sizeof(value), b":") or not known.value:
                return None
            return value
        status = field(0, ctypes.c_uint16)
        priority = field(1, ctypes.c_uint32)
        name = field(2, ctypes.c_char * 64)
        status_name = None
        if status is not None:
            raw = self._lib.kq_GetStatusName(self._db, status.value)
            status_name = _text(raw) if raw is not None else "unknown (%d)" % status.value
        return Object(type, id, _text(name.value) if name is not None else None, status_name,
                      priority.value if priority is not None else None)

    def to_pandas(self, start=None, end=None):
        """The events as a pandas DataFrame; needs pandas."""
        import pandas
        rows = [(e.number, e.time, e.type, e.subtype, e.name, e.owner_id, e.payload)
                for e in self.events(start, end)]
        return pandas.DataFrame(rows, columns=["number", "time", "type", "subtype", "name",
                                               "owner_id", "payload"])


def open(path):
    """Opens the database `path` (its base name, or a name with .kqv, .kqs
    or .kqi) for reading."""
    return Database(path)
