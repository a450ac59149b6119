% SPDX-License-Identifier: BSD-3-Clause
% octave operations.m ORDER REPEATS: products, solves and decompositions. A line each: name, seconds of the fastest, and
% the residual in units of order times rounding error; fails where that is above 10.
global n repeats
args = argv();
n = str2double(args{1});
repeats = str2double(args{2});
rand("state", 7);
failed = 0;

a = rand(n) - 0.5;
b = rand(n) - 0.5;
x = rand(n, 1);
s = a * a' + n * eye(n);
h = a + a';
g = a + n * eye(n);

function out = relative(got, wanted)
  out = norm(got - wanted, 1) / norm(wanted, 1);
end

% step(name, computes what residual() judges)
function bad = step(name, compute, residual)
  global n repeats
  best = Inf;
  for i = 1:repeats
    t = tic();
    result = compute();
    best = min(best, toc(t));
  end
  error = residual(result) / (n * eps);
  printf("%-10s %9.6f %8.3f\n", name, best, error);
  bad = !(error <= 10);
end

function f = lu_of(a)
  [f.l, f.u, f.p] = lu(a);
end
function f = qr_of(a)
  [f.q, f.r] = qr(a);
end
function f = eig_of(a)
  [f.v, f.d] = eig(a);
end
function f = svd_of(a)
  [f.u, f.s, f.v] = svd(a);
end

failed += step("product", @() a * b, @(c) relative(c * x, a * (b * x)));
failed += step("transposed", @() a' * b, @(c) relative(c * x, a' * (b * x)));
failed += step("gram", @() a' * a, @(c) relative(c * x, a' * (a * x)));
failed += step("vector", @() a * x, @(y) relative(y, sum(a' .* x)'));
failed += step("solve", @() s \ b, @(y) relative(s * y, b));
failed += step("general", @() g \ b, @(y) relative(g * y, b));
failed += step("inverse", @() inv(s), @(y) relative(s * y, eye(n)));
failed += step("lu", @() lu_of(a), @(f) relative(f.p' * f.l * f.u, a));
failed += step("cholesky", @() chol(s), @(r) relative(r' * r, s));
failed += step("qr", @() qr_of(a), @(f) relative(f.q * f.r, a));
failed += step("symmetric", @() eig_of(h), @(f) relative(f.v * f.d * f.v', h));
failed += step("svd", @() svd_of(a), @(f) relative(f.u * f.s * f.v', a));
failed += step("complex", @() complex(a, b) * complex(b, a), @(c) relative(c * x, complex(a, b) * (complex(b, a) * x)));
exit(failed);
