# SPDX-License-Identifier: BSD-3-Clause
# Rscript operations.R ORDER REPEATS: products, solves and decompositions. A line each: name, seconds of the fastest, and
# the residual in units of order times rounding error; fails where that is above 10.
args <- as.numeric(commandArgs(trailingOnly = TRUE))
n <- args[1]
repeats <- args[2]
set.seed(7)
failed <- 0

a <- matrix(runif(n * n) - 0.5, n)
b <- matrix(runif(n * n) - 0.5, n)
x <- runif(n)
s <- tcrossprod(a) + n * diag(n)
h <- a + t(a)

relative <- function(got, wanted) norm(as.matrix(got - wanted), "1") / norm(as.matrix(wanted), "1")

step <- function(name, compute, residual) {
  best <- Inf
  for (i in seq_len(repeats)) {
    begin <- Sys.time()
    result <- compute()
    best <- min(best, as.numeric(Sys.time() - begin, units = "secs"))
  }
  error <- residual(result) / (n * .Machine$double.eps)
  cat(sprintf("%-10s %9.6f %8.3f\n", name, best, error))
  if (!isTRUE(error <= 10)) failed <<- failed + 1
}

step("product", function() a %*% b, function(c) relative(c %*% x, a %*% (b %*% x)))
step("gram", function() crossprod(a), function(c) relative(c %*% x, crossprod(a, a %*% x)))
step("vector", function() a %*% x, function(y) relative(y, colSums(t(a) * x)))
step("solve", function() solve(s, b), function(y) relative(s %*% y, b))
step("inverse", function() solve(s), function(y) relative(s %*% y, diag(n)))
step("cholesky", function() chol(s), function(r) relative(crossprod(r), s))
step("chol2inv", function() chol2inv(chol(s)), function(y) relative(s %*% y, diag(n)))
step("qr", function() qr(a, LAPACK = TRUE), function(f) relative(qr.Q(f) %*% qr.R(f), a[, f$pivot]))
step("symmetric", function() eigen(h), function(f) relative(f$vectors %*% (f$values * t(f$vectors)), h))
step("svd", function() svd(a), function(f) relative(f$u %*% (f$d * t(f$v)), a))
quit(status = failed)
