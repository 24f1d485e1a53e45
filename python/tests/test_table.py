# Tables through qzdbf.open / qzdbf.create: cells by type, writes on disk,
# deletion flags and pack, locks and errors; memory tables with undo and
# redo, restructuring (of a file and of a memory table) and the field-name
# repairs.

import datetime
import os

import dbfread
import pytest

import qzdbf


FIELDS = [("NAME", "C", 12, 0), ("QTY", "N", 20, 0), ("PRICE", "N", 10, 2), ("WHEN", "D", 8, 0),
          ("OK", "L", 1, 0), ("RATE", "F", 19, 8), ("SMALL", "I", 4, 0), ("DBL", "B", 8, 0)]


@pytest.fixture
def path(tmp_path):
    return str(tmp_path / "t.dbf")


def test_cells_round_trip_by_type_and_reach_other_readers(path):
    rows = [
        ("Ivanov", 2**62, 12.5, datetime.date(2024, 2, 29), True, 0.125, -7),
        ("Ärger €", -1, -0.01, datetime.date(1, 1, 1), False, -3.5, 2**31 - 1),
        (None, None, None, None, None, None, None),
    ]
    with qzdbf.create(path, FIELDS[:-1]) as t:
        assert t.fields[1] == qzdbf.Field("QTY", "N", 20, 0)
        for r in rows:
            t.append(r)
        t.append({"name": "by name", "QTY": 5})
    with qzdbf.open(path) as t:
        assert len(t) == 4 and t.encoding == "utf-8"
        got = list(t)
        assert got[:2] == rows[:2]
        # Blank cells read as None, an empty C cell as "", an I cell as 0.
        assert got[2] == ("", None, None, None, None, None, 0)
        assert t[3]["NAME"] == "by name" and t[3, "qty"] == 5 and t[-1, 1] == 5
        assert type(t[0, "QTY"]) is int and type(t[0, "PRICE"]) is float
    # dbfread reads every cell alike.
    assert [tuple(r.values()) for r in dbfread.DBF(path, encoding="utf-8")] == got
    # B holds doubles exactly; an appended record without a value holds 0.
    with qzdbf.create(path + "b.dbf", [("DBL", "B", 8, 0), ("X", "C", 1, 0)]) as t:
        for v in (1e300, -0.0, 5e-324, 1 / 3):
            t.append((v,))
        t.append({"X": "x"})
        assert [r[0] for r in t] == [1e300, -0.0, 5e-324, 1 / 3, 0.0] and str(t[1, 0]) == "-0.0"


def test_refused_values_leave_cell_and_table_unchanged(path):
    with qzdbf.create(path, FIELDS) as t:
        t.append(("keep", 1, 1.0))
        bad = [("NAME", "x" * 13), ("NAME", "Ж" * 7), ("NAME", 5), ("NAME", "a\0b"),
               ("QTY", "1"), ("QTY", 10**21), ("QTY", True), ("PRICE", 1e9), ("PRICE", float("inf")),
               ("WHEN", "20200101"), ("OK", 1), ("SMALL", 2**31), ("SMALL", 1.5), ("DBL", "x")]
        for name, value in bad:
            pytest.raises(qzdbf.InvalidValue, t.__setitem__, (0, name), value).match(name)
        assert t[0] == {"NAME": "keep", "QTY": 1, "PRICE": 1.0, "WHEN": None, "OK": None,
                        "RATE": None, "SMALL": 0, "DBL": 0.0}
        # A refused value in append leaves the new record marked deleted.
        pytest.raises(qzdbf.InvalidValue, t.append, {"NAME": "ok", "QTY": "no"})
        assert len(t) == 2 and t.deleted(1) and not t.deleted(0)
        for call, error in ((lambda: t[0, "NOPE"], KeyError), (lambda: t[2], IndexError),
                            (lambda: t.append(tuple(range(9))), qzdbf.InvalidArgument)):
            pytest.raises(error, call)
        assert len(t) == 2


def test_deleted_flags_and_pack_on_disk(path):
    with qzdbf.create(path, [("N", "N", 5, 0)]) as t:
        for i in range(10):
            t.append((i,))
        for i in (0, 3, 4, 9):
            t.set_deleted(i)
        t.set_deleted(4, False)
        assert [t.deleted(i) for i in range(10)] == [i in (0, 3, 9) for i in range(10)]
        assert t.pack() == 3 and t.pack() == 0
        t.append((99,))
    assert [r["N"] for r in dbfread.DBF(path)] == [1, 2, 4, 5, 6, 7, 8, 99]
    assert qzdbf.read_dataframe(path)["N"].tolist() == [1, 2, 4, 5, 6, 7, 8, 99]


def test_modes_locks_and_errors(path, tmp_path):
    with qzdbf.create(path, [("A", "C", 3, 0)]) as t:
        t.append(("x",))
    with qzdbf.open(path, "r") as ro:
        for write in (lambda: ro.__setitem__((0, "A"), "y"), lambda: ro.append(("y",))):
            pytest.raises(qzdbf.PermissionDenied, write)
        with qzdbf.open(path, "r+") as w:
            pytest.raises(qzdbf.Locked, qzdbf.open, path, "r+").match("locked")
            w[0, "A"] = "z"
            w.flush()
            assert ro[0, "A"] == "z"
    assert sorted(p.name for p in tmp_path.iterdir()) == ["t.cpg", "t.dbf"]  # no lock file left
    t = qzdbf.open(path)
    t.close()
    t.close()
    pytest.raises(qzdbf.Error, len, t).match("closed")
    e = pytest.raises(qzdbf.NotFound, qzdbf.open, tmp_path / "missing.dbf")
    assert isinstance(e.value, FileNotFoundError) and e.match("missing.dbf")
    junk = tmp_path / "junk.dbf"
    junk.write_bytes(b"hello, not a table at all" * 3)
    pytest.raises(qzdbf.NotATable, qzdbf.open, junk)
    for mode, encoding in (("x", None), ("r", "koi8-r")):
        pytest.raises(qzdbf.InvalidArgument, qzdbf.open, path, mode, encoding)
    for fields in ([("lower", "C", 5, 0)], [("A", "Q", 5, 0)], [("A", "N", 5, 5)],
                   [("A", "C", 1, 0), ("a", "C", 1, 0)], []):
        pytest.raises(qzdbf.InvalidArgument, qzdbf.create, tmp_path / "bad.dbf", fields)
    assert not (tmp_path / "bad.dbf").exists()
    os.chmod(path, 0o444)  # the folder is the test's own: it may stay so
    if os.geteuid() != 0:
        pytest.raises(qzdbf.PermissionDenied, qzdbf.open, path, "r+")


def test_encoding_override_check_and_field_names(path, tmp_path):
    with qzdbf.create(path, [("T", "C", 10, 0)], encoding="cp866") as t:
        t.append(("Привет",))
    raw = open(path, "rb").read()
    assert "Привет".encode("cp866") in raw
    with qzdbf.open(path) as t:
        assert t.encoding == "cp866" and t[0, "T"] == "Привет"
    with qzdbf.open(path, encoding="cp1251") as t:
        assert t[0, "T"] == "Привет".encode("cp866").decode("cp1251")
    assert qzdbf.check(path) == []
    cut = tmp_path / "cut.dbf"
    cut.write_bytes(raw[:40])
    assert max(f.severity for f in qzdbf.check(cut)) == 3
    assert qzdbf.check(tmp_path / "none.dbf")[0].kind == 1
    # Field-name rules and repairs.
    assert qzdbf.field_name_ok("NAME") and not qzdbf.field_name_ok("12AB")
    assert qzdbf.fix_field_name("12AB") == "AB" and qzdbf.fix_field_name("") == "PROP"
    assert qzdbf.fix_field_names(["id", "ID", "Id", "x"]) == ["ID", "ID1", "ID2", "X"]
    assert all(qzdbf.field_name_ok(n) for n in qzdbf.fix_field_names(["Цена", "Жёлтый", "Цена"]))


# Memory tables with undo and redo, restructuring (of a file and of a
# memory table) and the field-name repairs, through the package.
MEM_FIELDS = [("NAME", "C", 10, 0), ("QTY", "N", 6, 0), ("PRICE", "N", 8, 2), ("WHEN", "D", 8, 0)]


def make(path, n=5):
    with qzdbf.create(path, MEM_FIELDS) as t:
        for i in range(n):
            t.append((f"r{i}", i, i * 1.5, datetime.date(2020, 1, 1 + i)))
    return path


def test_memory_table_changes_undo_redo_and_save(tmp_path):
    path = make(tmp_path / "m.dbf")
    qzdbf.clear_history()
    with qzdbf.load(path) as t:
        assert t.in_memory and len(t) == 5
        t[1, "NAME"] = "changed"
        t.append({"NAME": "new", "QTY": 42})
        # Nothing reached the file; opening the path meanwhile serves the memory table.
        assert [r["NAME"] for r in dbfread.DBF(str(path))][:2] == ["r0", "r1"]
        with qzdbf.open(path) as f:
            assert f[1, "NAME"] == "changed" and len(f) == 6
        while qzdbf.can_undo():
            assert qzdbf.undo()
        assert len(t) == 5 and t[1, "NAME"] == "r1"
        assert qzdbf.redo() and qzdbf.can_redo() and t[1, "NAME"] == "changed"
        t.save()
        t.save(tmp_path / "copy.dbf")
        pytest.raises(qzdbf.InvalidArgument, t.pack)
        # A restructure is one step undo takes back; the file is not rewritten.
        t.restructure(["QTY", ("LABEL", "C", 4, 0, "NAME")])
        assert [f.name for f in t.fields] == ["QTY", "LABEL"] and t[2] == {"QTY": 2, "LABEL": "r2"}
        assert qzdbf.undo() and [f.name for f in t.fields] == [f[0] for f in MEM_FIELDS]
    qzdbf.clear_history()
    assert not qzdbf.can_undo() and not qzdbf.undo()
    for p in (path, tmp_path / "copy.dbf"):
        with qzdbf.open(p) as f:
            assert f[1, "NAME"] == "changed" and len(f.fields) == 4 and f[4] == {
                "NAME": "r4", "QTY": 4, "PRICE": 6.0, "WHEN": datetime.date(2020, 1, 5)}


def test_restructure_a_file_keeps_records_converts_and_renames(tmp_path):
    path = make(tmp_path / "r.dbf")
    with qzdbf.open(path, "r+") as t:
        t.restructure([
            ("COST", "N", 10, 3, "PRICE"),   # renamed, wider, more decimals
            "NAME",                          # kept as it is, now second
            ("QTY", "C", 6, 0),              # number to text
            ("NOTE", "C", 5, 0),             # new, blank
        ])                                   # WHEN goes
        assert [f[:4] for f in t.fields] == [("COST", "N", 10, 3), ("NAME", "C", 10, 0),
                                             ("QTY", "C", 6, 0), ("NOTE", "C", 5, 0)]
        assert t[3] == {"COST": 4.5, "NAME": "r3", "QTY": "3", "NOTE": ""}
        t[0, "NOTE"] = "ok"  # still writable after the rewrite
        for layout in ([], ["NOPE"], [("A", "C", 3, 0, "NAME"), ("B", "C", 3, 0, "NAME")]):
            pytest.raises(qzdbf.InvalidArgument, t.restructure, layout)
    assert qzdbf.read_dataframe(path)["NOTE"].tolist()[0] == "ok"
    assert sorted(p.name for p in tmp_path.iterdir()) == ["r.cpg", "r.dbf"]
    with qzdbf.open(path) as t, pytest.raises(qzdbf.PermissionDenied):
        t.restructure(["NAME"])
