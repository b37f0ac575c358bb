"""The report of an archive: the class counts per recording and the confusion matrix
as pictures (PNG), and an HTML page that shows them with the summary tables."""

import html
import os

import matplotlib

matplotlib.use("Agg")  # files only: no display needed
import matplotlib.pyplot as plt  # noqa: E402


def class_counts_picture(classes, path):
    """Objects per decision per recording, as stacked bars."""
    counts = classes.pivot_table(index="recording", columns="decision", values="objects", aggfunc="sum", fill_value=0)
    order = [d for d in dict.fromkeys(classes["decision"]) if d in counts.columns]
    counts = counts[order].loc[:, counts[order].sum() > 0] if not counts.empty else counts
    fig, ax = plt.subplots(figsize=(max(7, 0.5 * len(counts) + 4), 4.5))
    if counts.empty or counts.shape[1] == 0:
        ax.text(0.5, 0.5, "no objects", ha="center", va="center")
    else:
        counts.plot.bar(stacked=True, ax=ax, width=0.8)
        ax.legend(title="decision", fontsize="small", loc="upper left", bbox_to_anchor=(1.0, 1.0))
    ax.set_xlabel("recording")
    ax.set_ylabel("objects")
    ax.set_title("Objects per class and recording")
    fig.tight_layout()
    fig.savefig(path, dpi=100)
    plt.close(fig)


def confusion_picture(matrix, path):
    """The confusion matrix of object decisions, with the count in each cell."""
    fig, ax = plt.subplots(figsize=(max(5, 1.1 * matrix.shape[1] + 2), max(4, 0.7 * matrix.shape[0] + 2)))
    ax.imshow(matrix.to_numpy(), cmap="Blues")
    ax.set_xticks(range(matrix.shape[1]), matrix.columns, rotation=30, ha="right")
    ax.set_yticks(range(matrix.shape[0]), matrix.index)
    top = matrix.to_numpy().max() if matrix.size else 0
    for (row, column), value in zip(((r, c) for r in range(matrix.shape[0]) for c in range(matrix.shape[1])),
                                    matrix.to_numpy().ravel()):
        ax.text(column, row, str(value), ha="center", va="center", color="white" if value > top / 2 else "black")
    ax.set_xlabel("decision")
    ax.set_ylabel("truth")
    ax.set_title("Object decisions against the truth")
    fig.tight_layout()
    fig.savefig(path, dpi=100)
    plt.close(fig)


def write(directory, summary, classes, matrix):
    """Writes the pictures and report.html into `directory`; the page's path."""
    class_counts_picture(classes, os.path.join(directory, "class_counts.png"))
    parts = ["<!doctype html><meta charset='utf-8'><title>zelk-batch report</title>",
             "<style>body{font-family:sans-serif} table{border-collapse:collapse} td,th{border:1px solid #ccc;"
             "padding:2px 6px;text-align:right}</style>",
             "<h1>zelk-batch report</h1>", "<h2>Recordings</h2>",
             summary.drop(columns=["cube", "white", "dark", "truth"]).fillna("").to_html(index=False, float_format=lambda v: f"{v:.3g}"),
             "<h2>Objects per class</h2><img src='class_counts.png' alt='objects per class and recording'>"]
    if not matrix.empty:
        confusion_picture(matrix, os.path.join(directory, "confusion.png"))
        parts += ["<h2>Confusion matrix</h2><img src='confusion.png' alt='confusion matrix'>", matrix.to_html()]
    failed = summary[summary["status"] != "ok"]
    if not failed.empty:
        parts.append("<h2>Failed recordings</h2><ul>" + "".join(
            f"<li>{html.escape(str(r.recording))}: {html.escape(str(r.message))}</li>" for r in failed.itertuples()) + "</ul>")
    path = os.path.join(directory, "report.html")
    with open(path, "w", encoding="utf-8") as f:
        f.write("\n".join(parts))
    return path
