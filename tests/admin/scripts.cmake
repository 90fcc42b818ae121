# What is checked of korvalen_admin by scripts.

add_test(NAME WarningCodes.AreThoseOfTheManPageAndTheSchema COMMAND ${CMAKE_CURRENT_LIST_DIR}/warning_codes)

# What an instrumented program writes at its end would be among the changes.
if(NOT KORVALEN_SANITIZERS AND NOT KORVALEN_COVERAGE)
  add_test(NAME JsonReports.KeepToTheSchemaAndToItsOrder
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/json_reports $<TARGET_FILE:korvalen_admin> $<TARGET_FILE:korvalen_installer>)
  add_test(NAME PlanPicture.ShowsWhatAPlanOfTheSamplesShowsNow
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/plan_picture $<TARGET_FILE:korvalen_admin>)
endif()
