#pragma once
// Readers of the pipeline elements as model streams store them. Each begins with the
// element's own tag ("ZelkAFPipelineM1:1" and so on): on a wrong tag the reader returns
// -1 and reads nothing more. Behind a good tag the fields are read in file order and
// the arrays' own results are not looked at, except where stated; the enclosing reader
// decides what a failure means.

#include "classify/pipeline_elements.h"

#include <QDataStream>

int loadElement(QDataStream& in, ZelkAFPipelineM1& element);
int loadElement(QDataStream& in, ZelkAFPipelineM2& element);
int loadElement(QDataStream& in, ZelkAFPipelineM3& element);
int loadElement(QDataStream& in, ZelkAFPipelineM5& element);
// The file holds only the band counts and the filter's parameters; the matrix is built
// from them, and a pair without coefficients leaves it empty without failing the read.
int loadElement(QDataStream& in, ZelkAFPipelineM7& element);
// -1 also when one of its two arrays fails.
int loadElement(QDataStream& in, ZelkAFPipelineM9& element);
int loadElement(QDataStream& in, ZelkAFPipelineM10& element);
