#!/usr/bin/python3
"""A Quorvel report as Python's HTML parser reads it, in JSON: title, figures, sections (heading; rows of
shade, cell texts and the tags inside each cell), footnote, scan text, script count, markers left over."""
import json
import sys
from html.parser import HTMLParser


class Report(HTMLParser):
    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.out = {"title": "", "figures": {}, "sections": [], "scripts": 0,
                    "markers": [], "footnote": "", "scan": ""}
        self.capture = None  # (kind, texts)
        self.cell = self.row = self.value = None
        self.inside = None  # "footnote" or "scan"

    def handle_starttag(self, tag, attrs):
        a = dict(attrs)
        cls = a.get("class") or ""
        self.out["scripts"] += tag == "script"
        if tag.startswith("qv_") and tag not in ("qv_diagnosis_table", "qv_diagnosis_row"):
            self.out["markers"].append(tag)
        if self.cell is not None:
            self.cell["tags"].append(tag)
            if tag in ("br", "li"):
                self.cell["text"].append("\n")
        if tag == "title" or (tag == "h2" and self.out["sections"]) or (tag == "span" and cls in ("value", "label")):
            self.capture = (cls if tag == "span" else tag, [])
        elif tag == "section" and "findings" in cls:
            self.out["sections"].append({"heading": "", "rows": []})
        elif tag == "tr" and "row" in cls.split():
            self.row = {"shade": a.get("data-shade"), "cells": [], "tags": []}
            self.out["sections"][-1]["rows"].append(self.row)
        elif tag == "td" and self.row is not None:
            self.cell = {"text": [], "tags": []}
        elif (tag, cls) in (("div", "footnote"), ("dl", "scan")):
            self.inside = cls

    def handle_endtag(self, tag):
        if self.capture and tag in ("title", "h2", "span"):
            kind, text = self.capture[0], "".join(self.capture[1]).strip()
            if kind == "title":
                self.out["title"] = text
            elif kind == "h2":
                self.out["sections"][-1]["heading"] = text
            elif kind == "value":
                self.value = text
            else:
                self.out["figures"][text] = self.value
            self.capture = None
        if tag == "td" and self.cell is not None:
            self.row["cells"].append("".join(self.cell["text"]).strip())
            self.row["tags"].append(self.cell["tags"])
            self.cell = None
        self.row = None if tag == "tr" else self.row
        self.inside = None if (tag, self.inside) in (("div", "footnote"), ("dl", "scan")) else self.inside

    def handle_data(self, data):
        for texts in (self.capture and self.capture[1], self.cell and self.cell["text"]):
            if texts is not None:
                texts.append(data)
        if self.inside:
            self.out[self.inside] += data + (" " if self.inside == "scan" else "")


parser = Report()
with open(sys.argv[1], encoding="utf-8") as f:
    parser.feed(f.read())
parser.close()
json.dump(parser.out, sys.stdout, ensure_ascii=False)
