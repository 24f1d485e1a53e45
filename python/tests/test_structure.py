# Memory tables with undo and redo, restructuring (of a file and of a
# memory table) and the field-name repairs, through the package.

import datetime

import dbfread
import pytest

import qzdbf

FIELDS = [("NAME", "C", 10, 0), ("QTY", "N", 6, 0), ("PRICE", "N", 8, 2), ("WHEN", "D", 8, 0)]


def make(path, n=5):
    with qzdbf.create(path, FIELDS) as t:
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
        with pytest.raises(qzdbf.InvalidArgument):
            t.pack()
        # A restructure is one step undo takes back; the file is not rewritten.
        t.restructure(["QTY", ("LABEL", "C", 4, 0, "NAME")])
        assert [f.name for f in t.fields] == ["QTY", "LABEL"] and t[2] == {"QTY": 2, "LABEL": "r2"}
        assert qzdbf.undo() and [f.name for f in t.fields] == [f[0] for f in FIELDS]
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
            with pytest.raises(qzdbf.InvalidArgument):
                t.restructure(layout)
    assert qzdbf.read_dataframe(path)["NOTE"].tolist()[0] == "ok"
    assert sorted(p.name for p in tmp_path.iterdir()) == ["r.cpg", "r.dbf"]
    with qzdbf.open(path) as t, pytest.raises(qzdbf.PermissionDenied):
        t.restructure(["NAME"])


def test_field_name_rules_and_repairs():
    assert qzdbf.field_name_ok("NAME") and not qzdbf.field_name_ok("12AB")
    assert qzdbf.fix_field_name("12AB") == "AB" and qzdbf.fix_field_name("") == "PROP"
    assert qzdbf.fix_field_names(["id", "ID", "Id", "x"]) == ["ID", "ID1", "ID2", "X"]
    assert all(qzdbf.field_name_ok(n) for n in qzdbf.fix_field_names(["Цена", "Жёлтый", "Цена"]))
