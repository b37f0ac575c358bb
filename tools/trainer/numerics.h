#pragma once
// The numerical steps of the trainer, on double-precision column-major matrices.

#include <random>
#include <vector>

namespace trainer {

double squaredDistance(const double* x, const double* y, int n);

// Eigenvalues (descending) and eigenvectors (columns, n x n) of a symmetric n x n
// matrix, by cyclic Jacobi rotations.
void symmetricEigen(std::vector<double> matrix, int n, std::vector<double>* values, std::vector<double>* vectors);

// k centres of `points` (n points of `dims` values each) by k-means++ seeding and Lloyd
// rounds. An emptied cluster takes the point farthest from its centre.
std::vector<double> kmeans(const std::vector<double>& points, int dims, int k, int rounds, std::mt19937& rng);

// Solves the symmetric positive definite system g x = r for `columns` right-hand sides
// (g n x n, r n x columns) by Cholesky factorisation; throws when g is not positive
// definite.
std::vector<double> solveSpd(std::vector<double> g, int n, std::vector<double> r, int columns);

} // namespace trainer
