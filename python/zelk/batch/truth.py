"""Object decisions against a recording's truth (the `truth.csv` that `zelk-scene`
writes): each true object is matched to the nearest found object by centroid, nearest
pairs first, within a distance; what stays unmatched is missed (true) or extra (found)."""

import numpy as np
import pandas as pd

from .recording import REJECTED

#: Centroids further apart than this many pixels are not one object.
MATCH_DISTANCE = 3.0
TRUTH_COLUMNS = {"id", "material", "trained", "centroid_line", "centroid_column"}


def read_truth(path):
    """The truth table at `path`; ValueError naming the missing columns."""
    truth = pd.read_csv(path)
    missing = TRUTH_COLUMNS - set(truth.columns)
    if missing:
        raise ValueError(f"{path} lacks the column(s) {', '.join(sorted(missing))} of a truth table")
    return truth


def expected_decision(truth):
    """The decision each true object should get: its material, or the rejected decision
    for a material the model was not trained on."""
    return truth["material"].where(truth["trained"].astype(bool), REJECTED)


def match(found, truth, distance=MATCH_DISTANCE):
    """Pairs (found index, truth index) of one recording, nearest first, each object at
    most once, and the unmatched indices of both: (pairs, missed, extra)."""
    f = found[["centroid_line", "centroid_column"]].to_numpy(float)
    t = truth[["centroid_line", "centroid_column"]].to_numpy(float)
    d = np.hypot(f[:, None, 0] - t[None, :, 0], f[:, None, 1] - t[None, :, 1]).reshape(len(f), len(t))
    near = np.argwhere(d <= distance)
    candidates = sorted((d[a, b], found.index[a], truth.index[b]) for a, b in near)
    pairs, used_found, used_truth = [], set(), set()
    for _, i, j in candidates:
        if i not in used_found and j not in used_truth:
            pairs.append((i, j))
            used_found.add(i)
            used_truth.add(j)
    missed = [j for j in truth.index if j not in used_truth]
    extra = [i for i in found.index if i not in used_found]
    return pairs, missed, extra


def compare(found, truth, distance=MATCH_DISTANCE):
    """One row per true and per extra object of a recording: the true material, the
    decision it should get, the decision found ('missed' when none) and whether they agree."""
    pairs, missed, extra = match(found, truth, distance)
    expected = expected_decision(truth)
    rows = [{"truth_id": truth.at[j, "id"], "material": truth.at[j, "material"], "expected": expected[j],
             "object": found.at[i, "object"], "decision_name": found.at[i, "decision_name"]} for i, j in pairs]
    rows += [{"truth_id": truth.at[j, "id"], "material": truth.at[j, "material"], "expected": expected[j],
              "object": None, "decision_name": "missed"} for j in missed]
    rows += [{"truth_id": None, "material": "extra", "expected": "extra", "object": found.at[i, "object"],
              "decision_name": found.at[i, "decision_name"]} for i in extra]
    table = pd.DataFrame(rows, columns=["truth_id", "material", "expected", "object", "decision_name"])
    table["correct"] = table["expected"] == table["decision_name"]
    return table


def confusion(comparisons):
    """The confusion matrix of object decisions over all recordings: true material by
    row, the trained ones first, then 'extra' for found objects without a truth; decision
    by column, each row's right decision in the row's place, so that right decisions lie
    on the diagonal, then 'missed' for true objects that were not found."""
    if comparisons.empty:
        return pd.DataFrame()
    matrix = pd.crosstab(comparisons["material"], comparisons["decision_name"])
    expected = dict(zip(comparisons["material"], comparisons["expected"]))
    rows = sorted((m for m in matrix.index if m != "extra"), key=lambda m: (expected[m] == REJECTED, m))
    rows += ["extra"] if "extra" in matrix.index else []
    columns = list(dict.fromkeys(expected[m] for m in rows if m != "extra"))
    columns += sorted(c for c in matrix.columns if c not in columns and c != "missed") + ["missed"]
    return matrix.reindex(index=rows, columns=columns, fill_value=0)
