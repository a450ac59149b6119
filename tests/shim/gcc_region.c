/* SPDX-License-Identifier: BSD-3-Clause */
/* What programs of the other compiler do: products in their own parallel region. Built as a program and as a module. */
#include <dirent.h>

enum { kOrder = 200, kRegion = 4 };

void dgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k, const double* alpha,
            const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
            const int* ldc);

static double ones[kOrder * kOrder], products[kRegion * kOrder * kOrder];

static int count_threads(void) {
  int threads = -2;
  DIR* const tasks = opendir("/proc/self/task");
  while (readdir(tasks)) ++threads;
  closedir(tasks);
  return threads;
}

/* Threads of the region, or 0 when a product was wrong: as many as it asks for, unless the products made teams of their
 * own. */
int threads_of_region(void) {
  const int order = kOrder, others = count_threads() - 1;
  const double one = 1, zero = 0;
  int wrong = 0;
  for (int i = 0; i < kOrder * kOrder; ++i) ones[i] = 1;
#pragma omp parallel for num_threads(kRegion) schedule(static, 1)
  for (int i = 0; i < kRegion; ++i)
    for (int repeat = 0; repeat < 5; ++repeat)
      dgemm_("N", "T", &order, &order, &order, &one, ones, &order, ones, &order, &zero, products + i * kOrder * kOrder,
             &order);
  for (int i = 0; i < kRegion * kOrder * kOrder; ++i) wrong += products[i] != kOrder;
  return wrong ? 0 : count_threads() - others;
}

int main(void) { return threads_of_region(); }
