#!/usr/bin/python3
"""Reads a Quorvel report with Python's own HTML parser and prints what a
reader sees, as JSON: title, summary figures, sections with their heading and
rows (shade and the text of each cell, with the tags found inside the cell),
the number of script elements and any marker left unreplaced."""
import json
import sys
from html.parser import HTMLParser

MARKERS_KEPT = {"qv_diagnosis_table", "qv_diagnosis_row"}


class Report(HTMLParser):
    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.out = {"title": "", "figures": {}, "sections": [], "scripts": 0,
                    "markers": [], "footnote": "", "scan": ""}
        self.capture = None      # (kind, buffer list)
        self.cell = None
        self.row = None
        self.pending_value = None
        self.footnote_depth = 0
        self.scan_depth = 0

    def handle_starttag(self, tag, attrs):
        a = dict(attrs)
        cls = a.get("class", "") or ""
        if tag == "script":
            self.out["scripts"] += 1
        if tag.startswith("qv_") and tag not in MARKERS_KEPT:
            self.out["markers"].append(tag)
        if self.cell is not None:
            self.cell["tags"].append(tag)
        if tag == "title":
            self.capture = ("title", [])
        elif tag == "section" and "findings" in cls:
            self.out["sections"].append({"heading": "", "rows": []})
        elif tag == "h2" and self.out["sections"]:
            self.capture = ("heading", [])
        elif tag == "tr" and "row" in cls.split():
            self.row = {"shade": a.get("data-shade"), "cells": [], "tags": []}
            self.out["sections"][-1]["rows"].append(self.row)
        elif tag == "td" and self.row is not None:
            self.cell = {"text": [], "tags": []}
        elif tag == "span" and cls in ("value", "label"):
            self.capture = (cls, [])
        elif tag == "div" and cls == "footnote":
            self.footnote_depth = 1
        elif tag == "dl" and cls == "scan":
            self.scan_depth = 1
        if tag in ("br", "li") and self.cell is not None:
            self.cell["text"].append("\n")

    def handle_endtag(self, tag):
        if self.capture and tag in ("title", "h2", "span"):
            kind, buf = self.capture
            text = "".join(buf).strip()
            if kind == "title":
                self.out["title"] = text
            elif kind == "heading":
                self.out["sections"][-1]["heading"] = text
            elif kind == "value":
                self.pending_value = text
            elif kind == "label":
                self.out["figures"][text] = self.pending_value
            self.capture = None
        if tag == "td" and self.cell is not None:
            self.row["cells"].append("".join(self.cell["text"]).strip())
            self.row["tags"].append(self.cell["tags"])
            self.cell = None
        if tag == "tr":
            self.row = None
        if tag == "div" and self.footnote_depth:
            self.footnote_depth = 0
        if tag == "dl":
            self.scan_depth = 0

    def handle_data(self, data):
        if self.capture:
            self.capture[1].append(data)
        if self.cell is not None:
            self.cell["text"].append(data)
        if self.footnote_depth:
            self.out["footnote"] += data
        if self.scan_depth:
            self.out["scan"] += data + " "


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        text = f.read()
    parser = Report()
    parser.feed(text)
    parser.close()
    json.dump(parser.out, sys.stdout, ensure_ascii=False)


if __name__ == "__main__":
    main()
