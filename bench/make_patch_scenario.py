#!/usr/bin/env python3
"""Writes a server scenario for the patch benchmark: the example server, with its configuration
database rpx/rpconf.nsf grown to DOCS documents in proportions like a large site's:

  40 %  DLP documents of the eight forms (dictionary 10, entity 10, template 8, dictionary_type 3,
        entity_type 3, industry 2, region 2, validator 2), a third of them pre-defined, each with
        "ReferDocs"/"UseDocs" lists of other DLP documents' UNIDs; templates also carry
        "matchRule" texts with UNIDs inside
  15 %  "Register" documents, most with a "$ConflictAction" other than "3"
  10 %  policies and rules, one in twenty marked "DefaultRule" "1"
  30 %  "Expression" documents, one in five with a "DocID" that is not its own UNID
   5 %  other documents
  and the 46 known duplicate digital-asset documents (dictionary/entity, not pre-defined,
  unreferenced) when DOCS is at least 1000.

The configuration template rpx/rpconf.ntf gets one pre-defined DLP document per 100 database
documents, half of them bearing the name of a database document, so that the DLP upgrade has
documents both to add and to replace.

usage: make_patch_scenario.py DOCS OUT.json [EXAMPLE.json]
"""
import json
import os
import random
import sys

DLP_FORMS = [("dictionary", 10), ("entity", 10), ("template", 8), ("dictionary_type", 3),
             ("entity_type", 3), ("industry", 2), ("region", 2), ("validator", 2)]

DUPLICATE_ASSETS = [
    "026196EE7CA8DA4788257DDB00338EAE",
    "04F4B1069028343288257DDB00338E95",
    "07F523336A88406088257DDB00338E96",
    "08B7273F2ACA943788257DDB00338EB0",
    "08E5342F6EC1C2DB88257DDB00338E99",
    "09E9BECF0977178D88257DDB00338EAA",
    "0B040F8520AA780F88257DDB00338EB2",
    "0B519BFFC4EA161788257DDB00338EAB",
    "0FA922E0B6FF41FF88257DDB00338EA6",
    "18DC36F3F2C9280088257DDB00338E97",
    "19D3118303713CE088257DDB00338E9B",
    "1CCEC6D246472BDC88257DDB00338EA9",
    "2B9AFE02840CA78188257DDB00338E9F",
    "4D3BD2401DD374CF88257DDB00338E90",
    "552AB48AF0F907FD88257DDB00338EA8",
    "58B65AC7A1F179F388257DDB00338E9E",
    "63261E2835B9145F88257DDB00338E9C",
    "6FA04D25C7248A8788257DDB00338E9D",
    "714B721F0B7C10C988257DDB00338E94",
    "7865E5102B54616D88257DDB00338EA2",
    "7A9F46104C1C45B788257DDB00338E8E",
    "7E067581F322D0F588257DDB00338E85",
    "7E281576B9233C7388257DDB00338EA3",
    "8A37958D211BBBD188257DDB00338EAD",
    "8C41F5C4FBE240D388257DDB00338E8B",
    "8E0BE5991E99163688257DDB00338E98",
    "96C298B2DE9ED72F88257DDB00338E87",
    "A30D2C6EE6BC027288257DDB00338EAC",
    "A64F34619B76266A88257DDB00338E9A",
    "A8894B6843D7AACF88257DDB00338E8F",
    "B20C62B8D5B1917088257DDB00338E91",
    "B9A5018A6E320CCA88257DDB00338E86",
    "B9ED895550336A9188257DDB00338E92",
    "BAE6BEA78C9BBC6688257DDB00338E8A",
    "BE19C33161CDD3E488257DDB00338E89",
    "C22979B5FD57D22588257DDB00338EA0",
    "C657406F6150DF7688257DDB00338E88",
    "CA22F40BC0CDC47B88257DDB00338EA7",
    "D2589AFDF313191688257DDB00338E8D",
    "D38820D9D5B5772388257DDB00338E8C",
    "D61562F35196F68A88257DDB00338EA5",
    "E610FBAE4AF2BAE988257DDB00338EA1",
    "E70B0371F1F83A8D88257DDB00338EA4",
    "EC745AEA9867FC6488257DDB00338EB1",
    "F8BBBF0A8EF0757988257DDB00338E93",
    "FCC034E15D1E590C88257DDB00338EAF"
]


def unid(rng):
    return "%032X" % rng.getrandbits(128)


def make_documents(count, rng):
    notes = []
    dlp = []  # (unid, form) of every DLP document, for references
    plan = []
    for form, share in DLP_FORMS:
        plan += [("dlp", form)] * share
    plan += [("register", None)] * 15 + [("policy", None)] * 10 + [("expression", None)] * 30 + [("other", None)] * 5
    kinds = [plan[i % len(plan)] for i in range(count)]
    ids = [unid(rng) for _ in range(count)]
    for i, (kind, form) in enumerate(kinds):
        if kind == "dlp":
            dlp.append(ids[i])
    for i, (kind, form) in enumerate(kinds):
        items = {}
        if kind == "dlp":
            items["Form"] = form
            items["name"] = "%s %d" % (form, i)
            items["pre-defined"] = "true" if i % 3 == 0 else "false"
            items["ReferDocs"] = [rng.choice(dlp) for _ in range(rng.randint(2, 4))]
            items["UseDocs"] = [rng.choice(dlp) for _ in range(rng.randint(1, 2))]
            if form == "template":
                items["matchRule"] = ["(%s AND %s) OR NEAR(%s)" % (rng.choice(dlp), rng.choice(dlp), rng.choice(dlp))
                                      for _ in range(rng.randint(1, 3))]
        elif kind == "register":
            items["Form"] = "Register"
            items["RegisterName"] = "register %d" % i
            items["$ConflictAction"] = "3" if i % 4 == 0 else "1"
        elif kind == "policy":
            items["Form"] = "Policy" if i % 2 else "Rule"
            items["PolicyName"] = "policy %d" % i
            items["DefaultRule"] = "1" if i % 20 == 0 else "0"
            items["ReferDocs"] = [rng.choice(dlp)] if dlp else []
        elif kind == "expression":
            items["Form"] = "Expression"
            items["DocID"] = ids[i] if i % 5 else unid(rng)
            items["Expression"] = "virus .AND. word%d .NEAR. attachment" % i
            items["RefContent"] = [rng.choice(dlp)] if dlp else []
        else:
            items["Form"] = "Log Entry"
            items["Subject"] = "entry %d" % i
        notes.append({"class": "document", "unid": ids[i], "items": items})
    if count >= 1000:
        for n, asset in enumerate(DUPLICATE_ASSETS):
            form = "dictionary" if n % 2 == 0 else "entity"
            notes.append({"class": "document", "unid": asset,
                          "items": {"Form": form, "name": "duplicate %s %d" % (form, n), "pre-defined": "false"}})
    return notes, [n["items"]["name"] for n in notes if n["items"].get("Form") in dict(DLP_FORMS)]


def make_template_documents(count, names, rng):
    notes = []
    forms = [form for form, _ in DLP_FORMS]
    for i in range(max(count // 100, 8)):
        form = forms[i % len(forms)]
        name = names[i * 7 % len(names)] if (i % 2 == 0 and names) else "shipped %s %d" % (form, i)
        notes.append({"class": "document", "unid": unid(rng),
                      "items": {"Form": form, "name": name, "pre-defined": "true",
                                "ReferDocs": [], "UseDocs": []}})
    return notes


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    count = int(sys.argv[1])
    out = sys.argv[2]
    here = os.path.dirname(os.path.abspath(__file__))
    example = sys.argv[3] if len(sys.argv) == 4 else os.path.join(here, "..", "examples", "server", "scenario.json")
    with open(example) as f:
        scenario = json.load(f)
    rng = random.Random(count)
    documents, names = make_documents(count, rng)
    config = scenario["data"]["rpx/rpconf.nsf"]
    # The example may list some of the known duplicate assets itself; a UNID is never given twice.
    present = {note.get("unid") for note in config["notes"]}
    config["notes"] += [note for note in documents if note["unid"] not in present]
    # The template the patch ships replaces the installed one during the run: fill that one.
    shipped = [path for path in scenario.get("install", {}) if path.endswith("/rpconf.ntf")]
    template = scenario["install"][shipped[0]] if shipped else scenario["data"]["rpx/rpconf.ntf"]
    template["notes"] = template.get("notes", []) + make_template_documents(count, names, rng)
    server = scenario.setdefault("server", {})
    server["clock"] = "virtual"
    with open(out, "w") as f:
        json.dump(scenario, f, separators=(",", ":"))


if __name__ == "__main__":
    main()
