! The companion from Fortran, compiled by gfortran -m32: the built routines,
! and with the argument "dots" the complex function values of CDOTU and ZDOTC.
program test_fortran
  implicit none
  character(len=8) :: mode
  call get_command_argument(1, mode)
  if (mode == 'dots') then
    call check_dots()
  else
    call check_built()
  end if
  print *, 'ok'
contains
  subroutine expect(ok, what)
    logical, intent(in) :: ok
    character(len=*), intent(in) :: what
    if (.not. ok) then
      print *, 'FAILED: ', what
      error stop 1
    end if
  end subroutine

  subroutine check_built()
    double precision :: x(5), y(5), y0(5), a(3, 2), b(2, 4), c(3, 4), want(3, 4)
    complex :: ca(2, 3), cx(2), cy(3), cwant(3)
    integer :: i
    x = (/ 1d0, 2d0, 3d0, 4d0, 5d0 /)
    y0 = (/ 0.5d0, -1d0, 2d0, 0d0, 1d0 /)
    y = y0
    call daxpy(5, 2d0, x, 1, y, 1)
    call expect(all(abs(y - (y0 + 2d0 * x)) < 1d-14), 'DAXPY')

    a = reshape((/ 1d0, 2d0, 3d0, 4d0, 5d0, 6d0 /), (/ 3, 2 /))
    b = reshape((/ (dble(i) / 8d0, i = 1, 8) /), (/ 2, 4 /))
    c = 1d0
    want = 0.5d0 * matmul(a, b) - 2d0
    call dgemm('No transpose', 'N', 3, 4, 2, 0.5d0, a, 3, b, 2, -2d0, c, 3)
    call expect(all(abs(c - want) < 1d-13), 'DGEMM')

    ca = reshape((/ (cmplx(i, -i), i = 1, 6) /), (/ 2, 3 /))
    cx = (/ (1.0, 0.5), (-0.5, 2.0) /)
    cy = (0.0, 0.0)
    cwant = matmul(conjg(transpose(ca)), cx)
    call cgemv('Conjugate transpose', 2, 3, (1.0, 0.0), ca, 2, cx, 1, (0.0, 0.0), cy, 1)
    call expect(all(abs(cy - cwant) < 1e-5), 'CGEMV')
  end subroutine

  subroutine check_dots()
    complex :: cx(3), cy(3), r, cdotu
    double complex :: zx(3), zy(3), s, zdotc
    external :: cdotu, zdotc
    cx = (/ (1.0, 2.0), (-0.5, 0.25), (3.0, -1.0) /)
    cy = (/ (0.5, -1.0), (2.0, 2.0), (-1.0, 0.5) /)
    r = cdotu(3, cx, 1, cy, 1)
    call expect(abs(r - sum(cx * cy)) < 1e-5, 'CDOTU value')
    zx = cx
    zy = cy
    s = zdotc(3, zx, 1, zy, 1)
    call expect(abs(s - dot_product(zx, zy)) < 1d-13, 'ZDOTC value')
  end subroutine
end program
