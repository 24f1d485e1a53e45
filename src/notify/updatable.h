// Iqz_updatable: an object whose changes can be bracketed, so that the
// changes made inside one bracket are announced together when it closes.
#pragma once

class Iqz_updatable {
  public:
    // Opens a bracket (brackets nest); returns the new nesting depth.
    virtual unsigned int begin_update() = 0;
    // Closes the innermost bracket; returns the new depth, 0 when none was open.
    virtual unsigned int end_update() = 0;

  protected:
    ~Iqz_updatable() = default;
};
